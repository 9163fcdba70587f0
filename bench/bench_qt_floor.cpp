// The least memory a Qt program in the daemon's place can have: the
// application object with Qt's own event dispatcher (QT_NO_GLIB, as the daemon
// chooses it) and two QTcpSockets connected to the collector's and the button
// driver's ports, as the daemon connects them, and nothing else. The bench
// compares the daemon's memory with this program's.
//
//   panel-bench-qt-floor
#include "base/RuntimeEnv.h"

#include <QCoreApplication>
#include <QHostAddress>
#include <QTcpSocket>

int main(int argc, char *argv[])
{
    qputenv("QT_NO_GLIB", "1");
    QCoreApplication app(argc, argv);
    qunsetenv("QT_NO_GLIB");
    QTcpSocket collector;
    QTcpSocket driver;
    collector.connectToHost(QHostAddress(QHostAddress::LocalHost), runtimeenv::collectorPort());
    driver.connectToHost(QHostAddress(QHostAddress::LocalHost), runtimeenv::driverPort());
    return app.exec();
}
