#include "support/SettingsSaves.h"

#include "support/PanelDaemon.h"

#include <QTest>

namespace {

using P = PanelDaemon;

bool waitFor(bool done, const char *step, QString *failure)
{
    if (!done && failure)
        *failure = QString::fromLatin1(step);
    return done;
}

// Sends msg and waits until the driver has drawn `count` more commands.
bool stepDrawing(PanelDaemon &d, const collector::CollectorMsg &msg, int count, const char *step,
                 QString *failure, int timeout = 5000)
{
    const int mark = d.commandCount();
    d.collector.send(msg);
    return waitFor(QTest::qWaitFor([&] { return d.commandCount() >= mark + count; }, timeout), step,
                   failure);
}

} // namespace

bool saveEverySetting(PanelDaemon &d, QString *failure)
{
    const PanelModel &panel = d.driver.panel();
    if (!stepDrawing(d, P::select(), 9, "setup page", failure)
        || !stepDrawing(d, P::select(), 3, "address editor", failure))
        return false;
    const QString before = panel.text(2, 0);
    d.collector.send(P::turn(1));
    if (!waitFor(QTest::qWaitFor([&] { return panel.text(2, 0) != before; }, 5000), "octet turned", failure)
        || !stepDrawing(d, P::back(), 1, "editor closed", failure)
        || !stepDrawing(d, P::turn(5), 2, "PSU item", failure)
        || !stepDrawing(d, P::select(), 2, "PSU choice", failure))
        return false;
    d.collector.send(P::turn(1));
    if (!waitFor(QTest::qWaitFor([&] { return panel.isHighlighted(2, 1); }, 5000), "PSU on", failure)
        || !stepDrawing(d, P::back(), 1, "PSU choice closed", failure)
        || !stepDrawing(d, P::turn(2), 2, "Save Changes", failure))
        return false;
    // PSU mode: two pauses of 2.2 s; network: a save thread and a 4.4 s pause.
    const QString saved = QStringLiteral("Done Page_Setup::saveParam_finished()");
    const int savesBefore = d.countLines(saved);
    d.collector.send(P::select());
    if (!waitFor(QTest::qWaitFor([&] { return d.countLines(saved) > savesBefore; }, 20000),
                 "saves finished", failure)
        || !stepDrawing(d, P::back(), 9, "main menu", failure)
        || !stepDrawing(d, P::turn(2), 2, "INTENSITY", failure)
        || !stepDrawing(d, P::select(), 4, "intensity page", failure)
        || !stepDrawing(d, P::select(), 5, "TFT item", failure))
        return false;
    const int applied = d.commandCount();
    d.collector.send(P::turn(-7));
    // Applied once the shaft rests for 150 ms: the level text and command 10.
    if (!waitFor(QTest::qWaitFor([&] { return d.commands(applied).contains("cmd10"); }, 5000),
                 "intensity applied", failure)
        || !stepDrawing(d, P::back(), 2, "TFT item closed", failure)
        || !stepDrawing(d, P::back(), 10, "back in the main menu", failure))
        return false;
    const QStringList turned = {"text 0 0 1 SETUP", "text 0 2 0 INTENSITY"};
    return stepDrawing(d, P::turn(-2), 2, "main menu turn", failure)
           && waitFor(d.commands(d.commandCount() - 2) == turned, "main menu turn drawn", failure);
}
