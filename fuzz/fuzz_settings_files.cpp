// libFuzzer target: arbitrary bytes as the settings files that the daemon reads.
//
// The input becomes, in a sandbox root, the network interfaces file, the
// button-level file, the version file and the launcher configuration, and
// each reader runs over it. Besides not crashing, what they return must keep
// the shapes the rest of the program relies on.
#include "FuzzTarget.h"
#include "netutil/NetUtil.h"
#include "pages/ButtonLevelFile.h"
#include "panel/LauncherConfig.h"
#include "panel/VersionFile.h"

#include <vector>

using fuzztarget::check;

namespace {

TestRoot *root = nullptr;

void quiet(QtMsgType type, const QMessageLogContext &, const QString &)
{
    if (type == QtFatalMsg)
        abort();
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
    return 0;
}
