#include "base/RuntimeEnv.h"

#include <QtTest>

class TestRuntimeEnvOverride : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("PANEL_SETUP_ROOT", "/var/tmp/sandbox");
        qputenv("PANEL_SETUP_COLLECTOR_PORT", "40001");
        qputenv("PANEL_SETUP_DRIVER_PORT", "not-a-port");
    }

    void rootPrefixesEveryPath()
    {
        QCOMPARE(runtimeenv::root(), QString("/var/tmp/sandbox"));
        QCOMPARE(runtimeenv::path("/etc/kd5820m/launcher.cfg"),
                 QString("/var/tmp/sandbox/etc/kd5820m/launcher.cfg"));
    }

    void portsOverridden()
    {
        QCOMPARE(runtimeenv::collectorPort(), quint16(40001));
        // A value that is no port keeps the device's port.
        QCOMPARE(runtimeenv::driverPort(), quint16(3003));
    }
};

QTEST_GUILESS_MAIN(TestRuntimeEnvOverride)
#include "tst_runtimeenv_override.moc"
