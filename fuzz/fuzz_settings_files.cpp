// libFuzzer target: arbitrary bytes as the settings files that the daemon reads.
//
// The input becomes, in a sandbox root, the network interfaces file, the
// button-level file, the version file and the launcher configuration, and
// each reader runs over it, the PSU reader too (which may add its key). Then
// every writer saves into the same throw-away root, over whatever the input
// left there. Besides not crashing, what the readers return must keep the
// shapes the rest of the program relies on, and the writers' files must hold
// exactly their bytes, or be left as they were where a save is refused.
#include "FuzzTarget.h"
#include "netutil/NetUtil.h"
#include "pages/ButtonLevelFile.h"
#include "panel/LauncherConfig.h"
#include "panel/VersionFile.h"

#include <QFile>
#include <QSettings>

#include <vector>

using fuzztarget::check;

namespace {

TestRoot *root = nullptr;

void quiet(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    fuzztarget::abortOnFatal(type, text);
}

// A value read from a "keyword value" line: one blank-free word.
bool isWord(const QString &value)
{
    return !value.contains(QLatin1Char(' ')) && !value.contains(QLatin1Char('\n'))
           && value == value.trimmed();
}

// A value of the launcher configuration as it is on disk. QSettings answers
// from its cache while a file's size and time are those it saw, which two
// saves within a millisecond keep: it reads a copy under a name never used.
QVariant onDisk(const QString &key)
{
    static int copies = 0;
    const QString copy = QStringLiteral("/launcher-copy-%1.cfg").arg(++copies);
    check(root->writeFile(copy, root->readFile("/etc/kd5820m/launcher.cfg")), "cannot copy the launcher file");
    const QVariant value = QSettings(root->hostPath(copy), QSettings::IniFormat).value(key);
    QFile::remove(root->hostPath(copy));
    return value;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    (void)argc;
    root = &fuzztarget::start("fuzz_settings_files", *argv, quiet);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray content(reinterpret_cast<const char *>(data), int(size));
    for (const char *path : {"/etc/network/interfaces", "/etc/kd5820m/buttonlevel",
                             "/opt/kd5820m/version", "/etc/kd5820m/launcher.cfg"})
        check(root->writeFile(QString::fromLatin1(path), content), "cannot write the sandbox");

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
    // Adds the key where the file lacks it.
    readPsuMode();
    const QByteArray launcher = root->readFile("/etc/kd5820m/launcher.cfg");

    NetUtil::writeInterfacesFile({"10.1.2.3", "255.0.0.0", "", "0.0.0.0"});
    check(root->readFile("/etc/network/interfaces")
              == "auto lo\niface lo inet loopback\n\nauto eth0\niface eth0 inet static\naddress 10.1.2.3\n"
                 "netmask 255.0.0.0\n",
          "interfaces file not written whole");
    writeButtonlevelFile({QStringLiteral("55"), QStringLiteral("66")});
    check(root->readFile("/etc/kd5820m/buttonlevel") == "lcd 55\nscr 66\n", "button-level file not written whole");

    // The launcher writers save into whatever INI text the input is, or
    // refuse it (unreadable, or a result that does not read back whole).
    const int fontSaved = writeFontDimensions(6, 13);
    check(fontSaved >= 0 && fontSaved <= 2, "font save result");
    if (fontSaved == 0)
        check(onDisk("font/width").toInt() == 6 && onDisk("font/height").toInt() == 13, "font size not saved");
    const int psuSaved = writePsuMode(1);
    check(psuSaved == 0 || psuSaved == -1, "PSU save result");
    if (psuSaved == 0)
        check(onDisk("psu/redundant").toInt() == 1, "PSU mode not saved");
    if (fontSaved != 0 && psuSaved != 0)
        check(root->readFile("/etc/kd5820m/launcher.cfg") == launcher, "refused saves changed the launcher file");
    return 0;
}
