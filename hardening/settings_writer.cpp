// Saves the three settings files through the daemon's own writers, over and
// over, alternating between the two rounds of SettingsRounds.h, until it is
// killed. The kill test (tests/tst_fault_writer_kill.cpp) kills it at random
// moments and checks what is left on disk. Paths come from PANEL_SETUP_ROOT,
// as in the daemon. After every complete round it writes one '.' to standard
// output, so the parent can tell that saves are under way.
#include "hardening/SettingsRounds.h"

#include <QCoreApplication>

#include <cstdio>

namespace {

void quiet(QtMsgType, const QMessageLogContext &, const QString &)
{
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    // The writers log every save; nobody reads it here.
    qInstallMessageHandler(quiet);
    for (unsigned index = 0;; ++index) {
        settingsrounds::saveAll(settingsrounds::round(int(index % 2)));
        fputc('.', stdout);
        fflush(stdout);
    }
}
