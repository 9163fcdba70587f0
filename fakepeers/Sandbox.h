#ifndef SANDBOX_H
#define SANDBOX_H

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>

// A throw-away device tree for running the daemon as PANEL_SETUP_ROOT:
//   /etc/kd5820m/launcher.cfg, /etc/kd5820m/buttonlevel, /opt/kd5820m/version,
//   /opt/kd5820m/fonts/{6x13,8x13,10x20}.pcf.gz, /etc/network/interfaces,
//   /etc/init.d/kd5820m-main (the main application is installed),
//   /mnt/flashdisk/etc/network/ (no start flag), /tmp/,
//   stubs /etc/init.d/networking and /bin/sync,
// plus a directory of stub commands for PATH: reboot, poweroff and
// setup_script. Every stub only appends "<name> <arguments>" as one line to
// the call log in the root, so nothing of the host is ever touched.
// The tree can also come from a template directory (panel-sim keeps one in
// the repository); its stubs log the same way.
class Sandbox
{
public:
    // rootPath empty: a temporary directory removed with the sandbox.
    // Otherwise the tree is (re)created in rootPath and kept.
    explicit Sandbox(const QString &rootPath = QString());
    // The tree copied from templateDir (executable bits kept) instead of the
    // built-in one, plus the directories and PATH stubs above; rootPath as
    // above. With keepFiles
    // the files rootPath already holds stay as they are, the start flag and the
    // call log included: a sandbox reused from an earlier run.
    Sandbox(const QString &rootPath, const QString &templateDir, bool keepFiles);
    ~Sandbox();
    Sandbox(const Sandbox &) = delete;
    Sandbox &operator=(const Sandbox &) = delete;

    bool isValid() const { return _valid; }
    QString root() const { return _root; }
    // The stub commands' directory, to put first on PATH.
    QString binDir() const;
    // devicePath ("/etc/network/interfaces") inside the sandbox.
    QString hostPath(const QString &devicePath) const;

    // Creates the missing directories on the way.
    bool writeFile(const QString &devicePath, const QByteArray &content, bool executable = false);
    QByteArray readFile(const QString &devicePath) const;
    bool removeFile(const QString &devicePath);
    bool exists(const QString &devicePath) const;

    // A stub command on PATH (binDir) named name.
    bool addPathStub(const QString &name);
    // A stub script at devicePath inside the sandbox, logging as name.
    bool addStub(const QString &devicePath, const QString &name);

    QString callLogPath() const;
    // The call log, one call per entry ("reboot -n", "setup_script enter").
    QStringList calls() const;
    void clearCalls();

    // The daemon's environment: this process's, with PANEL_SETUP_ROOT, the two
    // ports and the stub directory first on PATH.
    QProcessEnvironment environment(quint16 collectorPort, quint16 driverPort) const;

    static const QByteArray DefaultLauncherConfig;
    static const QByteArray DefaultInterfaces;
    static const QByteArray DefaultButtonLevel;
    static const QByteArray DefaultVersion;
    static const QStringList DefaultFonts;
    static const QString StartFlagPath;
    static const QString MainAppScriptPath;

private:
    bool openRoot(const QString &rootPath);
    bool makeDirectories();
    bool populate();
    bool copyTemplate(const QString &templateDir, bool keepFiles);

    std::unique_ptr<QTemporaryDir> _temporary;
    QString _root;
    bool _valid = false;
};

#endif // SANDBOX_H
