#include "LauncherConfig.h"

#include "panel/RuntimeEnv.h"

#include <QDebug>
#include <QFileInfo>
#include <QSettings>

namespace {

// QSettings reports NoError for a missing file, which must count as unreadable here.
bool readable(const QSettings &settings)
{
    return QFileInfo::exists(settings.fileName()) && settings.status() == QSettings::NoError;
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
        qDebug() << "Error reading configuration file '" << path << "'";
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
        qDebug() << "Error reading configuration file '" << path << "'";
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
        qDebug() << "Configuration file" << path << "doesn't exist!";
        qDebug() << "Font settings will not be saved!!";
        return -1;
    }
    QSettings settings(path, QSettings::IniFormat);
    if (settings.status() != QSettings::NoError) {
        qDebug() << "Error reading configuration file '" << path << "'";
        return 1;
    }
    // Tries to open the file for writing, so it answers for this process as it runs.
    if (!settings.isWritable()) {
        qDebug() << "Configuration file" << path << "is not writeable!!";
        return 2;
    }
    qDebug() << "Font dimensions set to width =" << width << "and height =" << height
             << "in file" << path;
    settings.beginGroup("font");
    settings.setValue("width", width);
    settings.setValue("height", height);
    settings.endGroup();
    settings.sync();
    return 0;
}

int readPsuMode()
{
    const QString path = launcherConfigPath();
    qDebug() << "Getting PSU mode from file" << path;
    QSettings settings(path, QSettings::IniFormat);
    if (!readable(settings)) {
        qDebug() << "Error accessing '" << path << "' for reading";
        return 0;
    }
    settings.beginGroup("psu");
    if (!settings.contains("redundant")) {
        qDebug() << "Config file doesn't contain the PSU key. Setting it to zero.";
        // Written to the file when the settings object goes out of scope.
        settings.setValue("redundant", 0);
        return 0;
    }
    qDebug() << "Found PSU key.";
    return settings.value("redundant", 0).toInt();
}

int writePsuMode(int mode)
{
    const QString path = launcherConfigPath();
    QSettings settings(path, QSettings::IniFormat);
    if (!readable(settings)) {
        qDebug() << "Error accessing '" << path << "' for reading";
        return -1;
    }
    if (!settings.isWritable()) {
        qDebug() << "Configuration file" << path << "is not writeable!!";
        return -1;
    }
    settings.beginGroup("psu");
    settings.setValue("redundant", mode);
    settings.endGroup();
    return 0;
}
