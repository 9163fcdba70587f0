#ifndef SCRIPTRUNNER_H
#define SCRIPTRUNNER_H

#include <QElapsedTimer>
#include <QObject>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <vector>

class VirtualPanel;

// Runs a panel script: one command a line (docs/virtual-panel.md, "Scripts").
// The daemon starts at the first line that needs it; the run stops at
// the first unmet expectation, printing what the panel shows instead.
class ScriptRunner : public QObject
{
    Q_OBJECT

public:
    enum class Kind {
        Start, Press, Release, Tap, Hold, Turn, Gpi, Wait, Write, Remove, Dump,
        ExpectLine, ExpectMark, ExpectLight, ExpectLed, ExpectLevel,
        ExpectFile, ExpectFileContains, ExpectFileMissing, ExpectCalls, ExpectCommand,
    };
    enum class Highlight { Any, Highlighted, Plain };

    struct Step
    {
        int line = 0;
        QString source;
        Kind kind = Kind::Start;
        QStringList keys;  // key words, resolved when the step runs (act1, act2 follow the sandbox)
        QString path;      // device path in the sandbox
        QString text;
        QStringList texts; // expected calls
        int numbers[3] = {0, 0, 0};
        int count = 0;     // how many of numbers were given
        Highlight highlight = Highlight::Any;
        int msecs = 0;     // hold, wait, or the time-out of an expectation
    };

    // Parses the whole script; false with the first error ("name:line: ...").
    static bool parse(const QString &name, const QString &script, std::vector<Step> *steps, QString *error);

    // timeScale multiplies every time-out of the script (each expectation's and
    // the daemon's start), for a slower machine; holds and waits keep theirs.
    ScriptRunner(VirtualPanel &panel, const QString &name, std::vector<Step> steps, int timeScale = 1,
                 QObject *parent = nullptr);

    void run();

signals:
    // 0: every line done; 1: an expectation failed or the daemon went.
    void finished(int exitCode);

private:
    struct Check
    {
        bool met = false;
        QString actual; // what the panel has instead
    };

    void next();
    void execute(const Step &step);
    void startDaemon();
    void evaluate();
    Check check(const Step &step) const;
    int resolveKey(const QString &word) const;
    void startCommand();
    void fail(const QString &why);
    void print(const QString &line) const;

    VirtualPanel &_panel;
    const QString _name;
    const std::vector<Step> _steps;
    const int _timeScale;
    size_t _index = 0;
    bool _done = false;
    QElapsedTimer _clock;
    QTimer _deadline;  // of the expectation or the daemon's start
    QTimer _recheck;   // files and the call log change without a signal
    bool _expecting = false;
    QProcess _command;        // of expect command, run again until it exits 0
    Check _commandResult;
};

#endif // SCRIPTRUNNER_H
