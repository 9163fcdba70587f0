#include "Sandbox.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

const QByteArray Sandbox::DefaultLauncherConfig = "[setup]\nbutton1=24\nbutton2=25\n\n"
                                                  "[font]\nwidth=10\nheight=20\n\n"
                                                  "[psu]\nredundant=0\n";
const QByteArray Sandbox::DefaultInterfaces = "auto lo\niface lo inet loopback\n\n"
                                              "auto eth0\niface eth0 inet static\n"
                                              "address 192.168.1.10\nnetmask 255.255.255.0\n"
                                              "broadcast 192.168.1.255\ngateway 192.168.1.1\n";
const QByteArray Sandbox::DefaultButtonLevel = "lcd 100\nscr 100\n";
const QByteArray Sandbox::DefaultVersion = "kd5820m version 1.2.3\n";
const QStringList Sandbox::DefaultFonts = {"6x13", "8x13", "10x20"};
const QString Sandbox::StartFlagPath = "/mnt/flashdisk/etc/network/start_setup_program";
const QString Sandbox::MainAppScriptPath = "/etc/init.d/kd5820m-main";

namespace {

// Single quotes for the shell; the sandbox path never holds one.
QString shellQuoted(const QString &text)
{
    return QLatin1Char('\'') + text + QLatin1Char('\'');
}

} // namespace

Sandbox::Sandbox(const QString &rootPath)
{
    _valid = openRoot(rootPath) && populate();
}

Sandbox::Sandbox(const QString &rootPath, const QString &templateDir, bool keepFiles)
{
    _valid = openRoot(rootPath) && copyTemplate(templateDir, keepFiles);
}

bool Sandbox::openRoot(const QString &rootPath)
{
    if (rootPath.isEmpty()) {
        _temporary = std::make_unique<QTemporaryDir>();
        if (!_temporary->isValid())
            return false;
        _root = _temporary->path();
    } else {
        _root = QFileInfo(rootPath).absoluteFilePath();
    }
    return !_root.contains(QLatin1Char('\''));
}

Sandbox::~Sandbox() = default;

QString Sandbox::binDir() const
{
    return _root + QStringLiteral("/stub-bin");
}

QString Sandbox::hostPath(const QString &devicePath) const
{
    return _root + devicePath;
}

QString Sandbox::callLogPath() const
{
    return _root + QStringLiteral("/calls.log");
}

bool Sandbox::makeDirectories()
{
    for (const char *dir : {"/etc/kd5820m", "/etc/network", "/etc/init.d", "/opt/kd5820m/fonts",
                            "/mnt/flashdisk/etc/network", "/tmp", "/bin", "/var/lib/panel-setup"}) {
        if (!QDir().mkpath(hostPath(QLatin1String(dir))))
            return false;
    }
    return QDir().mkpath(binDir());
}

bool Sandbox::populate()
{
    if (!makeDirectories())
        return false;
    bool ok = writeFile("/etc/kd5820m/launcher.cfg", DefaultLauncherConfig)
              && writeFile("/etc/kd5820m/buttonlevel", DefaultButtonLevel)
              && writeFile("/opt/kd5820m/version", DefaultVersion)
              && writeFile("/etc/network/interfaces", DefaultInterfaces)
              && writeFile(MainAppScriptPath, "#!/bin/sh\n", true)
              && addStub("/etc/init.d/networking", "networking") && addStub("/bin/sync", "sync")
              && addPathStub("reboot") && addPathStub("poweroff") && addPathStub("setup_script");
    for (const QString &font : DefaultFonts)
        ok = ok && writeFile("/opt/kd5820m/fonts/" + font + ".pcf.gz", QByteArray());
    removeFile(StartFlagPath);
    clearCalls();
    return ok;
}

bool Sandbox::copyTemplate(const QString &templateDir, bool keepFiles)
{
    const QDir source(templateDir);
    if (templateDir.isEmpty() || !source.exists() || !makeDirectories())
        return false;
    QDirIterator it(source.absolutePath(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString from = it.next();
        const QString to = hostPath(QLatin1Char('/') + source.relativeFilePath(from));
        if (keepFiles && QFileInfo::exists(to))
            continue;
        // QFile::copy keeps the permissions but never overwrites.
        QFile::remove(to);
        if (!QDir().mkpath(QFileInfo(to).absolutePath()) || !QFile::copy(from, to))
            return false;
    }
    if (!addPathStub("reboot") || !addPathStub("poweroff") || !addPathStub("setup_script"))
        return false;
    if (!keepFiles) {
        removeFile(StartFlagPath);
        clearCalls();
    }
    return true;
}

bool Sandbox::writeFile(const QString &devicePath, const QByteArray &content, bool executable)
{
    QFile file(hostPath(devicePath));
    if (!QDir().mkpath(QFileInfo(file).absolutePath()))
        return false;
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(content) != content.size())
        return false;
    file.close();
    if (executable)
        return file.setPermissions(file.permissions() | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther);
    return true;
}

QByteArray Sandbox::readFile(const QString &devicePath) const
{
    QFile file(hostPath(devicePath));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool Sandbox::removeFile(const QString &devicePath)
{
    return QFile::remove(hostPath(devicePath));
}

bool Sandbox::exists(const QString &devicePath) const
{
    return QFileInfo::exists(hostPath(devicePath));
}

bool Sandbox::addStub(const QString &devicePath, const QString &name)
{
    const QString script = QStringLiteral("#!/bin/sh\necho \"%1 $*\" >> %2\n")
                               .arg(name, shellQuoted(callLogPath()));
    return writeFile(devicePath, script.toUtf8(), true);
}

bool Sandbox::addPathStub(const QString &name)
{
    return addStub(binDir().mid(_root.size()) + QLatin1Char('/') + name, name);
}

QStringList Sandbox::calls() const
{
    QFile file(callLogPath());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QStringList lines;
    for (const QString &line : QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        lines << line.trimmed(); // a call without arguments logs a trailing blank
    return lines;
}

void Sandbox::clearCalls()
{
    QFile::remove(callLogPath());
}

QProcessEnvironment Sandbox::environment(quint16 collectorPort, quint16 driverPort) const
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("PANEL_SETUP_ROOT", _root);
    env.insert("PANEL_SETUP_COLLECTOR_PORT", QString::number(collectorPort));
    env.insert("PANEL_SETUP_DRIVER_PORT", QString::number(driverPort));
    env.insert("PATH", binDir() + QLatin1Char(':') + env.value("PATH", "/usr/bin:/bin"));
    return env;
}
