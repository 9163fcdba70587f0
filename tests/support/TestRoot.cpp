#include "support/TestRoot.h"

#include "panel/LauncherConfig.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

TestRoot::TestRoot(const QString &templatePath) : _dir(templatePath) {}

QString TestRoot::ramTemplate(const QString &name)
{
    return scratchParent() + QLatin1Char('/') + name + QStringLiteral("-XXXXXX");
}

bool TestRoot::install() const
{
    return _dir.isValid() && qputenv("PANEL_SETUP_ROOT", QFile::encodeName(_dir.path()));
}

QString TestRoot::hostPath(const QString &devicePath) const
{
    return _dir.path() + devicePath;
}

bool TestRoot::writeFile(const QString &devicePath, const QByteArray &content) const
{
    const QString path = hostPath(devicePath);
    if (!QDir().mkpath(QFileInfo(path).path()))
        return false;
    QFile::remove(path);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size() || !file.flush())
        return false;
    // QSettings keeps a file's contents while its size and modification time
    // (in milliseconds) stay the same; two writes within a millisecond would
    // look like no change at all. Each write gets a time of its own.
    static const QDateTime firstWrite = QDateTime::currentDateTimeUtc().addDays(-1);
    static qint64 writes = 0;
    return file.setFileTime(firstWrite.addSecs(++writes), QFileDevice::FileModificationTime);
}

QByteArray TestRoot::readFile(const QString &devicePath) const
{
    QFile file(hostPath(devicePath));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

bool TestRoot::writeFonts(const QStringList &files) const
{
    if (!QDir().mkpath(hostPath(QStringLiteral("/opt/kd5820m/fonts"))))
        return false;
    for (const QString &name : files) {
        if (!writeFile(QStringLiteral("/opt/kd5820m/fonts/") + name, QByteArray()))
            return false;
    }
    return true;
}
