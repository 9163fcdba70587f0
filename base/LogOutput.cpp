#include "base/LogOutput.h"

#include <QLoggingCategory>
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
#include <QStringEncoder>
#endif

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace logoutput {

namespace {

void appendText(Line *line, const QString &text)
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    QStringEncoder encoder(QStringEncoder::System, QStringConverter::Flag::Stateless);
    const qsizetype start = line->size();
    line->resize(start + encoder.requiredSpace(text.size()));
    char *end = encoder.appendToBuffer(line->data() + start, text);
    line->resize(end - line->constData());
#else
    const QByteArray bytes = text.toLocal8Bit();
    line->append(bytes.constData(), bytes.size());
#endif
}

void writeLine(QtMsgType, const QMessageLogContext &context, const QString &message)
{
    Line line;
    formatLine(context, message, &line);
    const char *data = line.constData();
    qsizetype left = line.size();
    while (left > 0) {
        const ssize_t written = ::write(STDERR_FILENO, data, size_t(left));
        if (written < 0 && errno == EINTR)
            continue;
        // A log reader that went away costs the line, as with stdio.
        if (written <= 0)
            return;
        data += written;
        left -= written;
    }
}

} // namespace

void install()
{
    if (!qEnvironmentVariableIsSet("QT_MESSAGE_PATTERN"))
        qInstallMessageHandler(writeLine);
}

void formatLine(const QMessageLogContext &context, const QString &message, Line *line)
{
    const bool categorised = context.category && std::strcmp(context.category, "default") != 0;
    if (!categorised && message.isNull())
        return;
    if (categorised) {
        line->append(context.category, qsizetype(std::strlen(context.category)));
        line->append(": ", 2);
    }
    const qsizetype start = line->size();
    appendText(line, message);
    const void *nul = std::memchr(line->constData() + start, '\0', size_t(line->size() - start));
    if (nul)
        line->resize(static_cast<const char *>(nul) - line->constData());
    line->append('\n');
}

void debugLine(const QString &text)
{
    if (QLoggingCategory::defaultCategory()->isDebugEnabled())
        qt_message_output(QtDebugMsg, QMessageLogContext(nullptr, 0, nullptr, "default"), text);
}

} // namespace logoutput
