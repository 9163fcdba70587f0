// The daemon's message handler writes what Qt's default handler writes
// without a message pattern, byte for byte, with one write a line.
#include "base/LogOutput.h"

#include <QLoggingCategory>
#include <QtTest>

#include <fcntl.h>
#include <unistd.h>

Q_LOGGING_CATEGORY(testCategory, "panel.test")

namespace {

// Standard error to a pipe while it lives; what was written, by bytes().
class StderrPipe
{
public:
    StderrPipe()
    {
        if (pipe2(_fds, O_NONBLOCK) != 0)
            return;
        _saved = dup(STDERR_FILENO);
        dup2(_fds[1], STDERR_FILENO);
    }
    ~StderrPipe()
    {
        restore();
        close(_fds[0]);
    }
    void restore()
    {
        if (_saved < 0)
            return;
        dup2(_saved, STDERR_FILENO);
        close(_saved);
        close(_fds[1]);
        _saved = -1;
    }
    QByteArray bytes()
    {
        restore();
        QByteArray all;
        char buffer[4096];
        ssize_t n;
        while ((n = read(_fds[0], buffer, sizeof buffer)) > 0)
            all.append(buffer, int(n));
        return all;
    }

private:
    int _fds[2] = {-1, -1};
    int _saved = -1;
};

QByteArray formatted(const QMessageLogContext &context, const QString &message)
{
    logoutput::Line line;
    logoutput::formatLine(context, message, &line);
    return QByteArray(line.constData(), int(line.size()));
}

} // namespace

class TestLogOutput : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sameBytesAsQtsFormat_data()
    {
        QTest::addColumn<QByteArray>("category");
        QTest::addColumn<QString>("message");
        const QString nonAscii = QString::fromUtf8("Baseline text = \"\u00e4\u00df\u20ac\" \U0001F600");
        const QString longText = QString(5000, QLatin1Char('x')) + QStringLiteral(" end");
        const QString withNul = QStringLiteral("line = \"lcd") + QChar(0) + QStringLiteral("100\"");
        for (const QByteArray &category : {QByteArray("default"), QByteArray("qt.network"), QByteArray()}) {
            const char *name = category.isNull() ? "no category" : category.constData();
            QTest::addRow("%s, plain", name) << category << QStringLiteral("Page_Main::onEnter()");
            QTest::addRow("%s, empty", name) << category << QString(QLatin1String(""));
            QTest::addRow("%s, null", name) << category << QString();
            QTest::addRow("%s, non-ASCII", name) << category << nonAscii;
            QTest::addRow("%s, longer than the stack buffer", name) << category << longText;
            QTest::addRow("%s, with a NUL", name) << category << withNul;
            QTest::addRow("%s, newline inside", name) << category << QStringLiteral("a\nb");
        }
    }

    void sameBytesAsQtsFormat()
    {
        QFETCH(QByteArray, category);
        QFETCH(QString, message);
        const QMessageLogContext context(nullptr, 0, nullptr, category.isNull() ? nullptr : category.constData());
        // Qt's default handler: fprintf(stderr, "%s\n", ...) of the formatted
        // message in the local 8-bit encoding, nothing for a null result.
        const QString qtFormat = qFormatLogMessage(QtDebugMsg, context, message);
        const QByteArray expected =
            qtFormat.isNull() ? QByteArray() : QByteArray(qtFormat.toLocal8Bit().constData()) + '\n';
        QCOMPARE(formatted(context, message), expected);
    }

    void handlerWritesEachLineToStandardError()
    {
        StderrPipe pipe;
        const QtMessageHandler testsHandler = qInstallMessageHandler(nullptr);
        logoutput::install();
        logoutput::debugLine(QStringLiteral("Refreshing previous and current menu items"));
        qDebug() << "Entering Page_Main::refresh_main_items(): _sh_menu_val =" << 3 << ", _prev_sh_menu_val =" << 2;
        qWarning("Config file doesn't contain the PSU key.");
        qCDebug(testCategory) << "categorised";
        qInstallMessageHandler(testsHandler);
        QCOMPARE(pipe.bytes(), QByteArray("Refreshing previous and current menu items\n"
                                          "Entering Page_Main::refresh_main_items(): _sh_menu_val = 3 , "
                                          "_prev_sh_menu_val = 2\n"
                                          "Config file doesn't contain the PSU key.\n"
                                          "panel.test: categorised\n"));
    }

    void debugLineFollowsTheLoggingRules()
    {
        StderrPipe pipe;
        const QtMessageHandler testsHandler = qInstallMessageHandler(nullptr);
        logoutput::install();
        QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
        logoutput::debugLine(QStringLiteral("hidden"));
        QLoggingCategory::setFilterRules(QString());
        logoutput::debugLine(QStringLiteral("shown"));
        qInstallMessageHandler(testsHandler);
        QCOMPARE(pipe.bytes(), QByteArray("shown\n"));
    }

    void messagePatternKeepsQtsHandler()
    {
        const QtMessageHandler testsHandler = qInstallMessageHandler(nullptr);
        qInstallMessageHandler(testsHandler);
        qputenv("QT_MESSAGE_PATTERN", "%{type}: %{message}");
        logoutput::install();
        qunsetenv("QT_MESSAGE_PATTERN");
        QVERIFY(qInstallMessageHandler(testsHandler) == testsHandler);
    }
};

QTEST_GUILESS_MAIN(TestLogOutput)
#include "tst_logoutput.moc"
