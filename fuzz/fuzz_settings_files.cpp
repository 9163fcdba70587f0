// libFuzzer target: arbitrary bytes as the settings files that the daemon reads.
//
// The input becomes, in a sandbox root, the network interfaces file, the
// button-level file, the version file and the launcher configuration, and
// each reader runs over it. Besides not crashing, what they return must keep
// the shapes the rest of the program relies on.
#include "netutil/NetUtil.h"
#include "pages/ButtonLevelFile.h"
#include "panel/LauncherConfig.h"
#include "panel/VersionFile.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

QTemporaryDir *root = nullptr;

void check(bool condition, const char *what)
{
    if (condition)
        return;
    fprintf(stderr, "fuzz_settings_files: %s\n", what);
    abort();
}

void quiet(QtMsgType type, const QMessageLogContext &, const QString &)
{
    if (type == QtFatalMsg)
        abort();
}

void writeFile(const QString &devicePath, const QByteArray &content)
{
    const QString path = root->path() + devicePath;
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    check(file.open(QIODevice::WriteOnly | QIODevice::Truncate), "cannot write the sandbox");
    check(file.write(content) == content.size(), "short write to the sandbox");
}

// A value read from a "keyword value" line: one blank-free word.
bool isWord(const QString &value)
{
    return !value.contains(QLatin1Char(' ')) && !value.contains(QLatin1Char('\n'))
           && value == value.trimmed();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    static int qtArgc = 1;
    static QCoreApplication app(qtArgc, *argv);
    (void)argc;
    qInstallMessageHandler(quiet);
    const QFileInfo shm(QStringLiteral("/dev/shm"));
    root = new QTemporaryDir((shm.isDir() && shm.isWritable() ? shm.filePath() : QDir::tempPath())
                             + QStringLiteral("/fuzz-settings-XXXXXX"));
    check(root->isValid(), "no temporary directory");
    qputenv("PANEL_SETUP_ROOT", root->path().toLocal8Bit());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray content(reinterpret_cast<const char *>(data), int(size));
    for (const char *path : {"/etc/network/interfaces", "/etc/kd5820m/buttonlevel",
                             "/opt/kd5820m/version", "/etc/kd5820m/launcher.cfg"})
        writeFile(QString::fromLatin1(path), content);

    std::vector<QString> addresses(8, QStringLiteral("unset"));
    NetUtil::readInterfacesFile(addresses);
    check(addresses.size() == 8, "interfaces reader resized the vector");
    for (const QString &value : addresses)
        check(isWord(value), "interfaces value is not one word");
    // A short vector is refused, never overrun.
    std::vector<QString> tooShort(3);
    NetUtil::readInterfacesFile(tooShort);
    check(tooShort == std::vector<QString>(3), "short vector was written");

    std::vector<QString> levels(2);
    check(readButtonlevelFile(levels), "existing button-level file not read");
    check(levels.size() == 2 && isWord(levels[0]) && isWord(levels[1]), "level is not one word");

    const QString shortForm = readVersionFile(false);
    check(shortForm == QLatin1String("VER=N/A")
              || (shortForm.startsWith(QLatin1String("V=")) && shortForm.size() <= 10),
          "short version form");
    const QString longForm = readVersionFile(true);
    check(longForm.startsWith(QLatin1String("VER=\n")) && longForm.size() <= 5 + 11
              && longForm.count(QLatin1Char('\n')) <= 2,
          "long version form");

    int button1 = -7, button2 = -7;
    readActivateButtons(&button1, &button2);
    int width = -1, height = -1;
    readFontDimensions(&width, &height);
    return 0;
}
