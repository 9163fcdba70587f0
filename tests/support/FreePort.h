#ifndef FREEPORT_H
#define FREEPORT_H

#include <QtGlobal>

// Finds a loopback port that nothing listens on now and puts it into the
// environment variable (PANEL_SETUP_COLLECTOR_PORT, ...). The program reads
// its ports once, at first use: call this in initTestCase. Returns the port,
// 0 when none could be had.
quint16 setFreePort(const char *variable);

#endif // FREEPORT_H
