#ifndef TESTROOT_H
#define TESTROOT_H

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

// A temporary directory that stands for the device's root in a test program
// (PANEL_SETUP_ROOT); its files are named by their paths on the device
// ("/etc/kd5820m/buttonlevel").
class TestRoot
{
public:
    TestRoot() = default;
    // templatePath: where and under what name, as QTemporaryDir takes it.
    explicit TestRoot(const QString &templatePath);

    // "<name>-XXXXXX" on the RAM disk /dev/shm where there is one, else in the
    // temporary directory: long runs that save on every step stay fast.
    static QString ramTemplate(const QString &name);

    // Makes the directory this process's PANEL_SETUP_ROOT; false when there is
    // none. The program reads the variable once, at first use: call this in
    // initTestCase.
    bool install() const;

    QString path() const { return _dir.path(); }
    // devicePath inside the root.
    QString hostPath(const QString &devicePath) const;

    // A fresh file with content (whatever the permissions of the one it
    // replaces), with the missing directories on the way and a modification
    // time that no earlier write had.
    bool writeFile(const QString &devicePath, const QByteArray &content) const;
    // The file's bytes; "<missing>" when it cannot be read.
    QByteArray readFile(const QString &devicePath) const;
    // Empty files of these names in the font directory, which it creates.
    bool writeFonts(const QStringList &files) const;

private:
    QTemporaryDir _dir;
};

#endif // TESTROOT_H
