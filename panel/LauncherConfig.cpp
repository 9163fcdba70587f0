#include "LauncherConfig.h"
#include "panel/DebugFormat.h"

#include "panel/RuntimeEnv.h"

#include <QDebug>
#include <QFile>
#include <QFileInfo>
#include <QList>
#include <QMap>
#include <QPair>
#include <QSettings>
#include <QTemporaryFile>

#include <cstdio>
#include <unistd.h>

namespace {

// Keys with their group ("font/width") and the values a save gives them.
using Changes = QList<QPair<QString, int>>;

// QSettings reports NoError for a missing file, which must count as unreadable here.
bool readable(const QSettings &settings)
{
    return QFileInfo::exists(settings.fileName()) && settings.status() == QSettings::NoError;
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

bool renameOver(const QString &from, const QString &to)
{
    return std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
}

// Applies `changes` to the file that `file` reads; on any failure the file
// stays as it was. QSettings' own save renames its temporary file over the
// target even when writing that failed for want of space, which emptied the
// file. So the change goes to a copy beside it, and the copy replaces the file
// only once it reads back whole and is on disk. Only copies are written (and
// locked) by QSettings: a lock left by a killed save never holds up the next.
bool changeThroughCopy(const QSettings &file, const Changes &changes)
{
    const QString path = file.fileName();
    // Opened for writing: the rename would replace a read-only file too.
    QFile original(path);
    if (!original.open(QIODevice::ReadWrite))
        return false;
    const QByteArray bytes = original.readAll();
    QTemporaryFile copy(path + QStringLiteral(".XXXXXX"));
    if (!copy.open() || copy.write(bytes) != bytes.size() || !copy.flush()
        || !copy.setPermissions(original.permissions()))
        return false;
    // Taken from the fresh copy: QSettings' cache of the real file can be stale
    // when two saves replaced it within its time resolution.
    const Values before = valuesOf(copy.fileName());
    {
        QSettings settings(copy.fileName(), QSettings::IniFormat);
        for (const auto &change : changes)
            settings.setValue(change.first, change.second);
        settings.sync();
        if (settings.status() != QSettings::NoError)
            return false;
    }
    // Read back under a name of its own: QSettings answers from what it wrote
    // for as long as the file's size and time match, however short the file.
    QTemporaryFile written(path + QStringLiteral(".XXXXXX"));
    if (!written.open() || !renameOver(copy.fileName(), written.fileName())
        || !holds(written.fileName(), before, changes))
        return false;
    QFile result(written.fileName());
    return result.open(QIODevice::ReadOnly) && ::fsync(result.handle()) == 0
           && renameOver(written.fileName(), path);
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

QString launcherConfigPath()
{
    return runtimeenv::path("/etc/kd5820m/launcher.cfg");
}

void readActivateButtons(int *button1, int *button2)
{
    if (!button1 || !button2)
        return;
    const QString path = launcherConfigPath();
    QSettings settings(path, QSettings::IniFormat);
    if (!readable(settings)) {
        qDebug() << "Error reading configuration file '" << verbatim(path) << "'";
        *button1 = 24;
        *button2 = 25;
    } else {
        settings.beginGroup("setup");
        *button1 = settings.value("button1", 24).toInt();
        *button2 = settings.value("button2", 25).toInt();
        settings.endGroup();
    }
    qDebug() << "Using activate buttons: _activate_but1 =" << *button1
             << ", _activate_but2 =" << *button2;
}

void readFontDimensions(int *width, int *height)
{
    if (!width || !height)
        return;
    const QString path = launcherConfigPath();
    QSettings settings(path, QSettings::IniFormat);
    if (!readable(settings)) {
        qDebug() << "Error reading configuration file '" << verbatim(path) << "'";
        return;
    }
    // No defaults: a missing key reads as 0, unlike the -1 left by an unreadable file.
    settings.beginGroup("font");
    *width = settings.value("width").toInt();
    *height = settings.value("height").toInt();
    settings.endGroup();
}

int writeFontDimensions(int width, int height)
{
    const QString path = launcherConfigPath();
    if (!QFileInfo::exists(path)) {
        qDebug() << "Configuration file" << verbatim(path) << "doesn't exist!";
        qDebug() << "Font settings will not be saved!!";
        return -1;
    }
    QSettings settings(path, QSettings::IniFormat);
    if (settings.status() != QSettings::NoError) {
        qDebug() << "Error reading configuration file '" << verbatim(path) << "'";
        return 1;
    }
    // Tries to open the file for writing, so it answers for this process as it runs.
    if (!settings.isWritable()) {
        qDebug() << "Configuration file" << verbatim(path) << "is not writeable!!";
        return 2;
    }
    qDebug() << "Font dimensions set to width =" << width << "and height =" << height
             << "in file" << verbatim(path);
    return saveChanges(settings, {{"font/width", width}, {"font/height", height}}) ? 0 : 2;
}

int readPsuMode()
{
    const QString path = launcherConfigPath();
    qDebug() << "Getting PSU mode from file" << verbatim(path);
    QSettings settings(path, QSettings::IniFormat);
    if (!readable(settings)) {
        qDebug() << "Error accessing '" << verbatim(path) << "' for reading";
        return 0;
    }
    if (!settings.contains("psu/redundant")) {
        qDebug() << "Config file doesn't contain the PSU key. Setting it to zero.";
        // The mode is 0 whether or not the key could be added, and a failed
        // addition goes unreported.
        changeThroughCopy(settings, {{"psu/redundant", 0}});
        return 0;
    }
    qDebug() << "Found PSU key.";
    return settings.value("psu/redundant", 0).toInt();
}

int writePsuMode(int mode)
{
    const QString path = launcherConfigPath();
    QSettings settings(path, QSettings::IniFormat);
    if (!readable(settings)) {
        qDebug() << "Error accessing '" << verbatim(path) << "' for reading";
        return -1;
    }
    if (!settings.isWritable()) {
        qDebug() << "Configuration file" << verbatim(path) << "is not writeable!!";
        return -1;
    }
    return saveChanges(settings, {{"psu/redundant", mode}}) ? 0 : -1;
}
