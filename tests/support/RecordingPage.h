#ifndef RECORDINGPAGE_H
#define RECORDINGPAGE_H

#include "pages/Page.h"
#include "support/RecordingCallback.h"

#include <QString>

// A stand-in page (a parent, say) that notes in the callback's journal
// "<name> onEnter" for each entry and "<name> event <kind> <id> <value> <delta>"
// for each event it is handed.
class RecordingPage : public Page
{
public:
    explicit RecordingPage(RecordingCallback *callback, const QString &name = QStringLiteral("parent"));

    void collectorMsg(const collector::CollectorMsg &msg) override;
    void onEnter() override;

    int enterCount() const { return _enters; }

private:
    RecordingCallback *_recorder;
    QString _name;
    int _enters = 0;
};

#endif // RECORDINGPAGE_H
