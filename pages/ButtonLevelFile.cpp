#include "pages/ButtonLevelFile.h"
#include "panel/DebugFormat.h"

#include "panel/RuntimeEnv.h"

#include <QDebug>
#include <QFile>
#include <QSaveFile>
#include <QStringList>
#include <QTextStream>

QString buttonlevelFilePath()
{
    return runtimeenv::path(QStringLiteral("/etc/kd5820m/buttonlevel"));
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

    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        qDebug() << "readButtonlevelFile: Unable to open file" << verbatim(path);
        return false;
    }
    QTextStream in(&file);
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
    // The rename below would replace a read-only file too: refuse it the way
    // opening it for writing does (with the caller's effective rights).
    QFile existing(path);
    if (existing.exists() && !existing.open(QIODevice::WriteOnly | QIODevice::Append)) {
        qDebug() << "writeButtonlevelFile : Unable to open" << verbatim(path);
        return;
    }
    existing.close();

    // Written to a temporary file and renamed, so a reader never sees half a file.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text | QIODevice::Truncate)) {
        qDebug() << "writeButtonlevelFile : Unable to open" << verbatim(path);
        return;
    }
    const QByteArray text = QStringLiteral("lcd %1\nscr %2\n").arg(values[0], values[1]).toLatin1();
    // Pushed out before the commit: a buffered write that fails (a full disk)
    // would otherwise still be renamed over the old file, leaving it empty.
    if (file.write(text) != text.size() || !file.flush())
        file.cancelWriting();
    if (!file.commit())
        qDebug() << "writeButtonlevelFile : Unable to write" << verbatim(path);
}

void writeButtonlevelFileDefaults()
{
    writeButtonlevelFile({QStringLiteral("100"), QStringLiteral("100")});
}
