#include "support/RecordingPage.h"

RecordingPage::RecordingPage(RecordingCallback *callback, const QString &name)
    : Page(callback, nullptr), _recorder(callback), _name(name)
{
}

void RecordingPage::collectorMsg(const collector::CollectorMsg &msg)
{
    _recorder->note(QStringLiteral("%1 event %2 %3 %4 %5")
                        .arg(_name)
                        .arg(msg.type)
                        .arg(msg.id)
                        .arg(msg.value)
                        .arg(msg.delta));
}

void RecordingPage::onEnter()
{
    ++_enters;
    _recorder->note(_name + QStringLiteral(" onEnter"));
}
