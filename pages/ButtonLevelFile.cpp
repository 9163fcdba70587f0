#include "pages/ButtonLevelFile.h"

#include "base/DebugFormat.h"
#include "base/RuntimeEnv.h"
#include "base/SettingsFile.h"
#include "base/DevicePaths.h"

#include <QDebug>
#include <QFile>
#include <QStringList>
#include <QTextStream>

QString buttonlevelFilePath()
{
    return runtimeenv::path(devicepaths::ButtonLevel);
}

bool readButtonlevelFile(std::vector<QString> &values)
{
    const QString path = buttonlevelFilePath();
    if (values.size() < 2) {
        qDebug() << "readButtonlevelFile: refused a value list of" << int(values.size())
                 << "entries";
        return false;
    }
    if (!QFile::exists(path))
        writeButtonlevelFileDefaults();

    QByteArray bytes;
    if (!settingsfile::readSmallFile(path, &bytes)) {
        qDebug() << "readButtonlevelFile: Unable to open file" << verbatim(path);
        return false;
    }
    QTextStream in(bytes);
    QString line;
    while (in.readLineInto(&line)) {
        qDebug() << "line =" << verbatim(line);
        const QStringList parts = line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
        if (parts.isEmpty())
            continue;
        // A key without a value reads as an empty value.
        const QString value = parts.size() > 1 ? parts.at(1).trimmed() : QString();
        if (parts.at(0) == QLatin1String("lcd"))
            values[0] = value;
        else if (parts.at(0) == QLatin1String("scr"))
            values[1] = value;
    }
    return true;
}

void writeButtonlevelFile(const std::vector<QString> &values)
{
    const QString path = buttonlevelFilePath();
    if (values.size() < 2) {
        qDebug() << "writeButtonlevelFile : refused a value list of" << int(values.size())
                 << "entries";
        return;
    }
    const QByteArray text = QStringLiteral("lcd %1\nscr %2\n").arg(values[0], values[1]).toLatin1();
    switch (settingsfile::save(path, text)) {
    case settingsfile::SaveResult::Saved:
        break;
    case settingsfile::SaveResult::OpenFailed:
        qDebug() << "writeButtonlevelFile : Unable to open" << verbatim(path);
        break;
    case settingsfile::SaveResult::WriteFailed:
        qDebug() << "writeButtonlevelFile : Unable to write" << verbatim(path);
        break;
    }
}

void writeButtonlevelFileDefaults()
{
    writeButtonlevelFile({QStringLiteral("100"), QStringLiteral("100")});
}
