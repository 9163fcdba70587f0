#include "panel/VersionFile.h"

#include "base/DebugFormat.h"
#include "base/RuntimeEnv.h"
#include "base/SettingsFile.h"
#include "base/DevicePaths.h"

#include <QDebug>
#include <QStringList>
#include <QTextStream>

QString readVersionFile(bool twoLines)
{
    QString notAvailable = twoLines ? "VER=\nN/A" : "VER=N/A";
    const QString path = runtimeenv::path(devicepaths::VersionFile);
    QByteArray bytes;
    if (!settingsfile::readSmallFile(path, &bytes)) {
        qDebug() << "readVersionFile: Unable to open file" << verbatim(path) << "\n";
        return notAvailable;
    }

    // readLine() drops the line end, so a trailing blank does not make a third word.
    const QStringList words = QTextStream(bytes).readLine().split(' ', Qt::SkipEmptyParts);
    if (words.size() < 3) {
        qDebug() << "readVersionFile: error parsing version file should be 'kdxxxxm version ####'";
        return notAvailable;
    }

    const QString version = words.at(2).trimmed().left(10);
    if (!twoLines)
        return "V=" + version.left(8);
    if (version.size() > 5)
        return "VER=\n" + version.left(5) + "\n" + version.mid(5);
    return "VER=\n" + version;
}
