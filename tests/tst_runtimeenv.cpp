#include "base/RuntimeEnv.h"

#include <QtTest>

// Unset or empty variables give the device's own paths and ports.
class TestRuntimeEnv : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        // Before the first lookup: the values are read once.
        qunsetenv("PANEL_SETUP_ROOT");
        qputenv("PANEL_SETUP_COLLECTOR_PORT", "");
        qunsetenv("PANEL_SETUP_DRIVER_PORT");
    }

    void devicePathsAreUnchanged()
    {
        QCOMPARE(runtimeenv::root(), QString());
        QCOMPARE(runtimeenv::path("/etc/network/interfaces"), QString("/etc/network/interfaces"));
        QCOMPARE(runtimeenv::path("/tmp"), QString("/tmp"));
    }

    void devicePorts()
    {
        QCOMPARE(runtimeenv::collectorPort(), quint16(3355));
        QCOMPARE(runtimeenv::driverPort(), quint16(3003));
    }

    void valuesAreReadOnce()
    {
        qputenv("PANEL_SETUP_ROOT", "/somewhere");
        qputenv("PANEL_SETUP_DRIVER_PORT", "4000");
        QCOMPARE(runtimeenv::path("/tmp"), QString("/tmp"));
        QCOMPARE(runtimeenv::driverPort(), quint16(3003));
    }
};

QTEST_GUILESS_MAIN(TestRuntimeEnv)
#include "tst_runtimeenv.moc"
