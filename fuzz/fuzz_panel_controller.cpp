// libFuzzer target: the panel controller and the button-driver client's send
// path, driven by arbitrary steps.
//
// Each input is a list of 17-byte steps: a step byte, then a 16-byte collector
// record (big-endian, as on the wire). Step byte modulo 4: 0 hands the record
// to Setup_Panel::collectorMsg (activation keys, pages, saves, reboot), 1 lets
// the activation timer fire, 2 drops an upgrade image into /tmp and reports
// the change, 3 removes the images and reports it. The hooks pause for half a
// second each and a reboot for three: an input takes at most four timer or
// image steps, and ends once the controller reboots or powers off. A fresh
// controller per input runs in a sandbox (stub commands first on PATH: the
// host is never rebooted) against a fake button driver, which must only ever
// receive whole frames.
#include "FakeButtonDriver.h"
#include "FuzzTarget.h"
#include "Sandbox.h"
#include "panel/Setup_Panel.h"
#include "support/FreePort.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QStandardPaths>
#include <QtEndian>

#include <memory>

using collector::CollectorMsg;
using fuzztarget::check;

namespace {

Sandbox *sandbox = nullptr;
FakeButtonDriver *driver = nullptr;
bool ending = false; // the controller started a reboot or a power-off

constexpr size_t MaxSteps = 64;
constexpr int MaxHookSteps = 4;
constexpr size_t StepSize = 17;

void watchForTheEnd(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    fuzztarget::abortOnFatal(type, text);
    if (text.startsWith(QLatin1String("Changing state to st_reboot"))
        || text.startsWith(QLatin1String("Changing state to st_poweroff"))
        || text.contains(QLatin1String("elinquishing control")))
        ending = true;
}

// A save runs on a thread of its own that must be done before the controller
// goes: it ends with the sync stub, after the networking one.
void waitForSaves()
{
    QElapsedTimer clock;
    clock.start();
    while (sandbox->calls().count("networking restart") != sandbox->calls().count("sync") && clock.elapsed() < 10000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    check(sandbox->calls().count("networking restart") == sandbox->calls().count("sync"), "save did not finish");
}

CollectorMsg record(const uint8_t *bytes)
{
    CollectorMsg msg;
    msg.type = qFromBigEndian<quint32>(bytes);
    msg.id = qFromBigEndian<qint32>(bytes + 4);
    msg.value = qFromBigEndian<qint32>(bytes + 8);
    msg.delta = qFromBigEndian<qint32>(bytes + 12);
    return msg;
}

// Lets the driver take in what was sent and the controller's queued work run.
void settle()
{
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < 20)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    (void)argc;
    TestRoot &root = fuzztarget::start("fuzz_panel_controller", *argv, watchForTheEnd);
    static Sandbox tree(root.path());
    check(tree.isValid(), "cannot make the sandbox");
    sandbox = &tree;
    // The stubs first: reboot, poweroff and the setup script only log.
    qputenv("PATH", QFile::encodeName(tree.binDir()) + ':' + qgetenv("PATH"));
    check(QStandardPaths::findExecutable("reboot") == tree.binDir() + "/reboot", "reboot is not the stub");
    check(QStandardPaths::findExecutable("poweroff") == tree.binDir() + "/poweroff", "poweroff is not the stub");
    check(setFreePort("PANEL_SETUP_COLLECTOR_PORT") != 0, "cannot reserve a port");
    static FakeButtonDriver fake;
    check(fake.start(), "fake driver cannot listen");
    check(qputenv("PANEL_SETUP_DRIVER_PORT", QByteArray::number(fake.port())), "cannot set the driver port");
    driver = &fake;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const size_t steps = qMin(size / StepSize, MaxSteps);
    for (const QString &file : {QStringLiteral("/etc/kd5820m/launcher.cfg"), QStringLiteral("/etc/kd5820m/buttonlevel"),
                                QStringLiteral("/etc/network/interfaces")}) {
        const QByteArray content = file.endsWith("launcher.cfg") ? Sandbox::DefaultLauncherConfig
                                   : file.endsWith("buttonlevel") ? Sandbox::DefaultButtonLevel
                                                                  : Sandbox::DefaultInterfaces;
        check(sandbox->writeFile(file, content), "cannot reset the sandbox");
    }
    QDir(sandbox->hostPath("/tmp")).removeRecursively();
    check(QDir().mkpath(sandbox->hostPath("/tmp")), "cannot reset /tmp");
    sandbox->removeFile(Sandbox::StartFlagPath);
    sandbox->clearCalls();
    driver->clearLog();
    const int malformedBefore = driver->malformedCount();
    ending = false;
    {
        Setup_Panel panel(QStringLiteral("setup_script"));
        panel.startDevices();
        int hookSteps = 0;
        for (size_t i = 0; i < steps && !ending; ++i) {
            const uint8_t *step = data + i * StepSize;
            const int kind = step[0] % 4;
            if (kind != 0 && ++hookSteps > MaxHookSteps)
                continue;
            switch (kind) {
            case 0:
                panel.collectorMsg(record(step + 1));
                break;
            case 1:
                panel.onTimerEnterSetup();
                break;
            case 2:
                check(sandbox->writeFile("/tmp/fuzz.img", "image"), "cannot write an image");
                panel.onSystemUpgrade(sandbox->hostPath("/tmp"));
                break;
            default:
                sandbox->removeFile("/tmp/fuzz.img");
                panel.onSystemUpgrade(sandbox->hostPath("/tmp"));
                break;
            }
            settle();
        }
        waitForSaves();
    }
    settle();
    check(driver->malformedCount() == malformedBefore, "the driver got a malformed frame");
    return 0;
}
