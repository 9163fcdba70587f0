#include "panel/LauncherConfig.h"

#include "base/DebugFormat.h"
#include "base/DirectoryListing.h"
#include "base/RuntimeEnv.h"
#include "base/SettingsFile.h"
#include "base/DevicePaths.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QList>
#include <QMap>
#include <QPair>
#include <QSettings>
#include <QTemporaryDir>

#include <cerrno>
#include <memory>
#include <signal.h>
#include <unistd.h>

namespace {

// Keys with their group ("font/width") and the values a save gives them.
using Changes = QList<QPair<QString, int>>;

// The file through QSettings when it is one that QSettings can read: a small
// regular file (QSettings would hang on a FIFO and read a device without end)
// without errors. Null otherwise; QSettings itself reports NoError for a
// missing file.
std::unique_ptr<QSettings> openSettings(const QString &path)
{
    if (!settingsfile::isSmallRegularFile(path))
        return nullptr;
    auto settings = std::make_unique<QSettings>(path, QSettings::IniFormat);
    if (settings->status() != QSettings::NoError)
        return nullptr;
    return settings;
}

using Values = QMap<QString, QVariant>;

Values valuesOf(const QString &fileName)
{
    const QSettings settings(fileName, QSettings::IniFormat);
    Values values;
    for (const QString &key : settings.allKeys())
        values.insert(key, settings.value(key));
    return values;
}

// The file `fileName`, read from disk, holds the keys of `before` with their
// values, the changed keys with their new values, and nothing else.
bool holds(const QString &fileName, Values before, const Changes &changes)
{
    for (const auto &change : changes)
        before.insert(change.first, change.second);
    const QSettings after(fileName, QSettings::IniFormat);
    if (after.status() != QSettings::NoError || after.allKeys().size() != before.size())
        return false;
    for (auto it = before.cbegin(); it != before.cend(); ++it) {
        if (after.value(it.key()).toString() != it.value().toString())
            return false;
    }
    return true;
}

// "panel-setup-<pid>-XXXXXX": the process id tells a killed save's directory
// from one in use by another running instance.
const char *const ScratchPrefix = "panel-setup-";

// The file's bytes with `changes` applied by QSettings; empty when QSettings
// failed or its result does not read back with every old key and the new values.
QByteArray changedBytes(const QByteArray &original, const Changes &changes)
{
    QTemporaryDir scratch(scratchParent() + QLatin1Char('/') + QLatin1String(ScratchPrefix)
                          + QString::number(::getpid()) + QStringLiteral("-XXXXXX"));
    if (!scratch.isValid())
        return QByteArray();
    const QString copyPath = scratch.filePath(QStringLiteral("launcher.cfg"));
    QFile copy(copyPath);
    if (!copy.open(QIODevice::WriteOnly) || copy.write(original) != original.size() || !copy.flush())
        return QByteArray();
    copy.close();
    const Values before = valuesOf(copyPath);
    {
        QSettings settings(copyPath, QSettings::IniFormat);
        for (const auto &change : changes)
            settings.setValue(change.first, change.second);
        settings.sync();
        if (settings.status() != QSettings::NoError)
            return QByteArray();
    }
    if (!copy.open(QIODevice::ReadOnly))
        return QByteArray();
    const QByteArray changed = copy.readAll();
    copy.close();
    // Read back under a name of its own: QSettings answers from what it wrote
    // for as long as the file's size and time match, however short the file.
    const QString checkPath = scratch.filePath(QStringLiteral("check.cfg"));
    QFile check(checkPath);
    if (!check.open(QIODevice::WriteOnly) || check.write(changed) != changed.size() || !check.flush())
        return QByteArray();
    check.close();
    return holds(checkPath, before, changes) ? changed : QByteArray();
}

// Applies `changes` to the file that `file` reads; on any failure the file
// keeps its bytes.
bool changeThroughCopy(const QSettings &file, const Changes &changes)
{
    QByteArray original;
    if (!settingsfile::readSmallFile(file.fileName(), &original))
        return false;
    const QByteArray changed = changedBytes(original, changes);
    return !changed.isEmpty()
           && settingsfile::save(file.fileName(), changed) == settingsfile::SaveResult::Saved;
}

// A save that fails for want of room or rights is the file's being not writeable.
bool saveChanges(const QSettings &file, const Changes &changes)
{
    if (changeThroughCopy(file, changes))
        return true;
    qDebug() << "Configuration file" << verbatim(file.fileName()) << "is not writeable!!";
    return false;
}

} // namespace

void removeStaleScratchCopies()
{
    const QString parent = scratchParent();
    using namespace directorylisting;
    for (const QString &entry : entryNames(parent, Dirs | Hidden)) {
        if (!entry.startsWith(QLatin1String(ScratchPrefix)))
            continue;
        const QStringList parts = entry.mid(int(qstrlen(ScratchPrefix))).split(QLatin1Char('-'));
        bool isPid = false;
        const int pid = parts.value(0).toInt(&isPid);
        if (parts.size() != 2 || !isPid || pid <= 0 || parts.at(1).size() != 6)
            continue;
        if (::kill(pid_t(pid), 0) != 0 && errno == ESRCH)
            QDir(parent + QLatin1Char('/') + entry).removeRecursively();
    }
}

// QSettings writes a whole file under a name of its own, with a lock file
// beside it. It works on a copy in a private directory in RAM, never beside
// the settings (a read-only directory, a flash partition) nor in the watched
// /tmp; the result is then saved like every settings file.
QString scratchParent()
{
    const QFileInfo shm(QStringLiteral("/dev/shm"));
    return shm.isDir() && shm.isWritable() ? shm.filePath() : QDir::tempPath();
}

QString launcherConfigPath()
{
    return runtimeenv::path(devicepaths::LauncherConfig);
}

void readActivateButtons(int *button1, int *button2)
{
    if (!button1 || !button2)
        return;
    const QString path = launcherConfigPath();
    const auto settings = openSettings(path);
    if (!settings) {
        qDebug() << "Error reading configuration file '" << verbatim(path) << "'";
        *button1 = 24;
        *button2 = 25;
    } else {
        settings->beginGroup("setup");
        *button1 = settings->value("button1", 24).toInt();
        *button2 = settings->value("button2", 25).toInt();
        settings->endGroup();
    }
    qDebug() << "Using activate buttons: _activate_but1 =" << *button1
             << ", _activate_but2 =" << *button2;
}

void readFontDimensions(int *width, int *height)
{
    if (!width || !height)
        return;
    const QString path = launcherConfigPath();
    const auto settings = openSettings(path);
    if (!settings) {
        qDebug() << "Error reading configuration file '" << verbatim(path) << "'";
        return;
    }
    // No defaults: a missing key reads as 0, unlike the -1 left by an unreadable file.
    settings->beginGroup("font");
    *width = settings->value("width").toInt();
    *height = settings->value("height").toInt();
    settings->endGroup();
}

int writeFontDimensions(int width, int height)
{
    const QString path = launcherConfigPath();
    if (!QFileInfo::exists(path)) {
        qDebug() << "Configuration file" << verbatim(path) << "doesn't exist!";
        qDebug() << "Font settings will not be saved!!";
        return -1;
    }
    const auto settings = openSettings(path);
    if (!settings) {
        qDebug() << "Error reading configuration file '" << verbatim(path) << "'";
        return 1;
    }
    // Tries to open the file for writing, so it answers for this process as it runs.
    if (!settings->isWritable()) {
        qDebug() << "Configuration file" << verbatim(path) << "is not writeable!!";
        return 2;
    }
    qDebug() << "Font dimensions set to width =" << width << "and height =" << height
             << "in file" << verbatim(path);
    return saveChanges(*settings, {{"font/width", width}, {"font/height", height}}) ? 0 : 2;
}

int readPsuMode()
{
    const QString path = launcherConfigPath();
    qDebug() << "Getting PSU mode from file" << verbatim(path);
    const auto settings = openSettings(path);
    if (!settings) {
        qDebug() << "Error accessing '" << verbatim(path) << "' for reading";
        return 0;
    }
    if (!settings->contains("psu/redundant")) {
        qDebug() << "Config file doesn't contain the PSU key. Setting it to zero.";
        // The mode is 0 whether or not the key could be added, and a failed
        // addition goes unreported.
        changeThroughCopy(*settings, {{"psu/redundant", 0}});
        return 0;
    }
    qDebug() << "Found PSU key.";
    return settings->value("psu/redundant", 0).toInt();
}

int writePsuMode(int mode)
{
    const QString path = launcherConfigPath();
    const auto settings = openSettings(path);
    if (!settings) {
        qDebug() << "Error accessing '" << verbatim(path) << "' for reading";
        return -1;
    }
    if (!settings->isWritable()) {
        qDebug() << "Configuration file" << verbatim(path) << "is not writeable!!";
        return -1;
    }
    return saveChanges(*settings, {{"psu/redundant", mode}}) ? 0 : -1;
}
