#include "MessageRecorder.h"

namespace {
MessageRecorder *current = nullptr;
} // namespace

MessageRecorder::MessageRecorder()
{
    current = this;
    _previous = qInstallMessageHandler(record);
}

MessageRecorder::~MessageRecorder()
{
    qInstallMessageHandler(_previous);
    current = nullptr;
}

void MessageRecorder::record(QtMsgType, const QMessageLogContext &, const QString &text)
{
    if (current)
        current->_messages.append(text);
}
