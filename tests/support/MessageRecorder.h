#ifndef MESSAGERECORDER_H
#define MESSAGERECORDER_H

#include <QStringList>
#include <QtGlobal>

// Collects every Qt message (text only) while an instance lives, so a test can
// check that a call logs nothing. QTest::ignoreMessage does not see the
// messages taken here. Not thread-safe; one instance at a time.
class MessageRecorder
{
public:
    MessageRecorder();
    ~MessageRecorder();
    MessageRecorder(const MessageRecorder &) = delete;
    MessageRecorder &operator=(const MessageRecorder &) = delete;

    const QStringList &messages() const { return _messages; }

private:
    static void record(QtMsgType type, const QMessageLogContext &context, const QString &text);

    QStringList _messages;
    QtMessageHandler _previous = nullptr;
};

#endif // MESSAGERECORDER_H
