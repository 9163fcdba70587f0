#include "ScriptRunner.h"

#include "PanelText.h"
#include "VirtualPanel.h"

using paneltext::quoted;

#include <QRegularExpression>

#include <cstdio>

namespace {

constexpr int DefaultTimeout = 3000; // ms an expectation may take
constexpr int StartTimeout = 15000;  // ms for the daemon to connect and settle
constexpr int CommandRetry = 200;    // ms between runs of a failing expect command

struct Token
{
    QString text;
    bool quoted = false;
};

// Words separated by blanks; "..." with \" \\ \n \t escapes; # starts a comment.
bool tokenize(const QString &line, QList<Token> *tokens, QString *error)
{
    int i = 0;
    while (i < line.size()) {
        const QChar c = line.at(i);
        if (c.isSpace()) {
            ++i;
        } else if (c == QLatin1Char('#')) {
            break;
        } else if (c == QLatin1Char('"')) {
            Token token{QString(), true};
            ++i;
            bool closed = false;
            while (i < line.size()) {
                QChar d = line.at(i++);
                if (d == QLatin1Char('"')) {
                    closed = true;
                    break;
                }
                if (d == QLatin1Char('\\')) {
                    if (i >= line.size())
                        break;
                    d = line.at(i++);
                    if (d == QLatin1Char('n'))
                        d = QLatin1Char('\n');
                    else if (d == QLatin1Char('t'))
                        d = QLatin1Char('\t');
                    else if (d != QLatin1Char('"') && d != QLatin1Char('\\')) {
                        *error = QStringLiteral("unknown escape \\%1").arg(d);
                        return false;
                    }
                }
                token.text += d;
            }
            if (!closed) {
                *error = QStringLiteral("a text without its closing \"");
                return false;
            }
            tokens->append(token);
        } else {
            Token token;
            while (i < line.size() && !line.at(i).isSpace())
                token.text += line.at(i++);
            tokens->append(token);
        }
    }
    return true;
}

bool parseNumber(const Token &token, int low, int high, int *value)
{
    bool ok = false;
    *value = token.text.toInt(&ok);
    return !token.quoted && ok && *value >= low && *value <= high;
}

bool parseTime(const Token &token, int *msecs)
{
    static const QRegularExpression time(QStringLiteral("^(\\d+(?:\\.\\d+)?)(ms|s)$"));
    const QRegularExpressionMatch match = time.match(token.text);
    if (token.quoted || !match.hasMatch())
        return false;
    const double value = match.captured(1).toDouble();
    *msecs = int(match.captured(2) == QLatin1String("s") ? value * 1000 : value);
    return *msecs <= 600000;
}

bool isKeyWord(const Token &token)
{
    static const QStringList names = {"select", "back", "act1", "act2"};
    int key = 0;
    return names.contains(token.text) || parseNumber(token, 0, 29, &key);
}

bool parseShaft(const Token &token, int *shaft)
{
    if (token.text == QLatin1String("menu")) {
        *shaft = 4;
        return true;
    }
    return parseNumber(token, 0, 5, shaft);
}

// A device path that stays inside the sandbox.
bool isDevicePath(const Token &token)
{
    return !token.quoted && token.text.startsWith(QLatin1Char('/'))
           && !token.text.split(QLatin1Char('/')).contains(QStringLiteral(".."));
}

// Fills step from the words of one line; an empty result means success.
QString parseLine(const QList<Token> &all, ScriptRunner::Step *step)
{
    using Kind = ScriptRunner::Kind;
    QList<Token> t = all;
    const QString verb = t.takeFirst().text;

    if (verb == QLatin1String("expect")) {
        step->msecs = DefaultTimeout;
        if (t.size() >= 2 && t.at(t.size() - 2).text == QLatin1String("within") && !t.at(t.size() - 2).quoted) {
            if (!parseTime(t.last(), &step->msecs))
                return QStringLiteral("a time such as 500ms or 5s after within");
            t.removeLast();
            t.removeLast();
        }
        if (t.isEmpty())
            return QStringLiteral("expect what? line, mark, light, led, level, file, calls or command");
        const QString what = t.takeFirst().text;
        if (what == QLatin1String("line")) {
            step->kind = Kind::ExpectLine;
            if (t.size() < 3 || t.size() > 4 || !parseNumber(t.at(0), 0, 2, &step->numbers[0])
                || !parseNumber(t.at(1), 0, 99, &step->numbers[1]) || !t.at(2).quoted)
                return QStringLiteral("expect line SCREEN ROW \"TEXT\" [highlighted|plain]");
            step->text = t.at(2).text;
            if (t.size() == 4) {
                if (t.at(3).text == QLatin1String("highlighted"))
                    step->highlight = ScriptRunner::Highlight::Highlighted;
                else if (t.at(3).text == QLatin1String("plain"))
                    step->highlight = ScriptRunner::Highlight::Plain;
                else
                    return QStringLiteral("highlighted or plain after the text");
            }
        } else if (what == QLatin1String("mark")) {
            step->kind = Kind::ExpectMark;
            if (t.size() != 4 || !parseNumber(t.at(0), 0, 2, &step->numbers[0])
                || !parseNumber(t.at(1), 0, 99, &step->numbers[1]) || !parseNumber(t.at(2), 0, 99, &step->numbers[2])
                || !t.at(3).quoted)
                return QStringLiteral("expect mark SCREEN ROW COLUMN \"TEXT\"");
            step->text = t.at(3).text;
        } else if (what == QLatin1String("light")) {
            step->kind = Kind::ExpectLight;
            step->count = int(t.size()) - 1;
            if (t.size() < 2 || t.size() > 3 || !isKeyWord(t.at(0))
                || !parseNumber(t.at(1), -1000000, 1000000, &step->numbers[0])
                || (t.size() == 3 && !parseNumber(t.at(2), -1000000, 1000000, &step->numbers[1])))
                return QStringLiteral("expect light KEY LEVEL1 [LEVEL2]");
            step->keys << t.at(0).text;
        } else if (what == QLatin1String("led")) {
            step->kind = Kind::ExpectLed;
            if (t.size() != 2)
                return QStringLiteral("expect led NAME VALUE");
            step->numbers[0] = int(VirtualPanel::LedNames.indexOf(t.at(0).text.toUpper()));
            if (step->numbers[0] < 0 && !parseNumber(t.at(0), 0, 4, &step->numbers[0]))
                return QStringLiteral("an LED is PSU, AUX, FAULT, WARNING, COMM or 0 to 4");
            if (t.at(1).text == QLatin1String("on"))
                step->numbers[1] = 1;
            else if (t.at(1).text == QLatin1String("off"))
                step->numbers[1] = 0;
            else if (!parseNumber(t.at(1), -1000000, 1000000, &step->numbers[1]))
                return QStringLiteral("an LED value is on, off or a number");
        } else if (what == QLatin1String("level")) {
            step->kind = Kind::ExpectLevel;
            if (t.size() != 2 || (t.at(0).text != QLatin1String("tft") && t.at(0).text != QLatin1String("keys"))
                || !parseNumber(t.at(1), -1, 1000, &step->numbers[1]))
                return QStringLiteral("expect level tft|keys PERCENT");
            step->numbers[0] = t.at(0).text == QLatin1String("tft") ? 0 : 1;
        } else if (what == QLatin1String("file")) {
            if (t.isEmpty() || !isDevicePath(t.at(0)))
                return QStringLiteral("expect file /PATH ... (a path in the sandbox, as on the device)");
            step->path = t.takeFirst().text;
            if (t.size() == 1 && t.at(0).quoted) {
                step->kind = Kind::ExpectFile;
                step->text = t.at(0).text;
            } else if (t.size() == 2 && t.at(0).text == QLatin1String("contains") && t.at(1).quoted) {
                step->kind = Kind::ExpectFileContains;
                step->text = t.at(1).text;
            } else if (t.size() == 1 && t.at(0).text == QLatin1String("missing")) {
                step->kind = Kind::ExpectFileMissing;
            } else {
                return QStringLiteral("expect file /PATH \"CONTENT\" | contains \"TEXT\" | missing");
            }
        } else if (what == QLatin1String("calls")) {
            step->kind = Kind::ExpectCalls;
            for (const Token &token : t) {
                if (!token.quoted)
                    return QStringLiteral("expect calls [\"CALL\" ...] (each call in double quotes)");
                step->texts << token.text;
            }
        } else if (what == QLatin1String("command")) {
            step->kind = Kind::ExpectCommand;
            if (t.size() != 1 || !t.at(0).quoted || t.at(0).text.isEmpty())
                return QStringLiteral("expect command \"SHELL COMMAND\"");
            step->text = t.at(0).text;
        } else {
            return QStringLiteral("expect what? line, mark, light, led, level, file, calls or command");
        }
        return QString();
    }

    if (verb == QLatin1String("start") || verb == QLatin1String("dump")) {
        step->kind = verb == QLatin1String("start") ? Kind::Start : Kind::Dump;
        return t.isEmpty() ? QString() : verb + QStringLiteral(" takes nothing more");
    }
    if (verb == QLatin1String("press") || verb == QLatin1String("release") || verb == QLatin1String("tap")
        || verb == QLatin1String("hold")) {
        step->kind = verb == QLatin1String("press")     ? Kind::Press
                     : verb == QLatin1String("release") ? Kind::Release
                     : verb == QLatin1String("tap")     ? Kind::Tap
                                                        : Kind::Hold;
        QString usage = step->kind == Kind::Hold ? QStringLiteral("hold KEY... for TIME")
                                                       : verb + QStringLiteral(" KEY...");
        if (step->kind == Kind::Hold) {
            if (t.size() < 3 || t.at(t.size() - 2).text != QLatin1String("for") || !parseTime(t.last(), &step->msecs))
                return usage;
            t.removeLast();
            t.removeLast();
        }
        if (t.isEmpty())
            return usage;
        for (const Token &token : t) {
            if (!isKeyWord(token))
                return QStringLiteral("a key is 0 to 29, select, back, act1 or act2: %1").arg(token.text);
            step->keys << token.text;
        }
        return QString();
    }
    if (verb == QLatin1String("turn")) {
        step->kind = Kind::Turn;
        if (t.size() != 2 || !parseShaft(t.at(0), &step->numbers[0])
            || !parseNumber(t.at(1), -1000000, 1000000, &step->numbers[1]))
            return QStringLiteral("turn SHAFT DELTA (shaft 0 to 5 or menu; delta such as +1 or -3)");
        return QString();
    }
    if (verb == QLatin1String("gpi")) {
        step->kind = Kind::Gpi;
        if (t.size() != 2 || !parseNumber(t.at(0), 0, VirtualPanel::Gpis - 1, &step->numbers[0])
            || (t.at(1).text != QLatin1String("on") && t.at(1).text != QLatin1String("off")))
            return QStringLiteral("gpi N on|off (N 0 to 7)");
        step->numbers[1] = t.at(1).text == QLatin1String("on") ? 1 : 0;
        return QString();
    }
    if (verb == QLatin1String("wait")) {
        step->kind = Kind::Wait;
        return t.size() == 1 && parseTime(t.at(0), &step->msecs) ? QString() : QStringLiteral("wait TIME (500ms, 2s)");
    }
    if (verb == QLatin1String("write")) {
        step->kind = Kind::Write;
        if (t.size() != 2 || !isDevicePath(t.at(0)) || !t.at(1).quoted)
            return QStringLiteral("write /PATH \"CONTENT\"");
        step->path = t.at(0).text;
        step->text = t.at(1).text;
        return QString();
    }
    if (verb == QLatin1String("remove")) {
        step->kind = Kind::Remove;
        if (t.size() != 1 || !isDevicePath(t.at(0)))
            return QStringLiteral("remove /PATH");
        step->path = t.at(0).text;
        return QString();
    }
    return QStringLiteral("unknown command %1").arg(verb);
}

bool needsDaemon(ScriptRunner::Kind kind)
{
    using Kind = ScriptRunner::Kind;
    return kind != Kind::Write && kind != Kind::Remove && kind != Kind::Wait && kind != Kind::Dump
           && kind != Kind::ExpectCommand;
}

} // namespace

bool ScriptRunner::parse(const QString &name, const QString &script, std::vector<Step> *steps, QString *error)
{
    const QStringList lines = script.split(QLatin1Char('\n'));
    for (int i = 0; i < lines.size(); ++i) {
        QList<Token> tokens;
        QString problem;
        if (tokenize(lines.at(i), &tokens, &problem) && !tokens.isEmpty()) {
            Step step;
            step.line = i + 1;
            step.source = lines.at(i).trimmed();
            problem = parseLine(tokens, &step);
            if (problem.isEmpty())
                steps->push_back(step);
        }
        if (!problem.isEmpty()) {
            *error = QStringLiteral("%1:%2: %3\n  %4").arg(name).arg(i + 1).arg(problem, lines.at(i).trimmed());
            return false;
        }
    }
    return true;
}

ScriptRunner::ScriptRunner(VirtualPanel &panel, const QString &name, std::vector<Step> steps, int timeScale,
                           QObject *parent)
    : QObject(parent), _panel(panel), _name(name), _steps(std::move(steps)), _timeScale(timeScale)
{
    _deadline.setSingleShot(true);
    _deadline.setTimerType(Qt::PreciseTimer); // "within 3s" means 3 s, not 2.85
    connect(&_deadline, &QTimer::timeout, this, [this] {
        if (_expecting)
            fail(QStringLiteral("not met within %1 s: %2")
                     .arg(_deadline.interval() / 1000.0)
                     .arg(check(_steps.at(_index)).actual));
        else
            fail(QStringLiteral("the daemon did not connect to both peers within %1 s")
                     .arg(_deadline.interval() / 1000));
    });
    _command.setProcessChannelMode(QProcess::MergedChannels);
    connect(&_command, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
            [this](int exitCode, QProcess::ExitStatus status) {
                if (_done || !_expecting)
                    return;
                const bool passed = status == QProcess::NormalExit && exitCode == 0;
                QString actual = status == QProcess::NormalExit ? QStringLiteral("exit status %1").arg(exitCode)
                                                                : QStringLiteral("killed by a signal");
                QString output = QString::fromLocal8Bit(_command.readAll()).trimmed();
                if (!output.isEmpty())
                    actual += QStringLiteral(", output:\n    ")
                              + output.replace(QLatin1Char('\n'), QStringLiteral("\n    "));
                _commandResult = {passed, actual};
                if (passed)
                    return evaluate();
                QTimer::singleShot(CommandRetry, Qt::PreciseTimer, this, [this] {
                    if (_expecting && !_done)
                        startCommand();
                });
            });
    _recheck.setInterval(20);
    connect(&_recheck, &QTimer::timeout, this, &ScriptRunner::evaluate);
    connect(&_panel, &VirtualPanel::changed, this, &ScriptRunner::evaluate);
    connect(&_panel, &VirtualPanel::ready, this, [this] {
        if (_done || _expecting || !_deadline.isActive())
            return;
        _deadline.stop();
        print(QStringLiteral("daemon ready"));
        next();
    });
    connect(&_panel, &VirtualPanel::daemonFinished, this, [this](const QString &state) {
        if (!_done)
            fail(QStringLiteral("the daemon stopped: %1").arg(state));
    });
}

void ScriptRunner::run()
{
    _clock.start();
    QMetaObject::invokeMethod(this, &ScriptRunner::next, Qt::QueuedConnection);
}

void ScriptRunner::next()
{
    if (_done)
        return;
    if (_index >= _steps.size()) {
        _done = true;
        print(QStringLiteral("%1: all %2 lines done").arg(_name).arg(_steps.size()));
        emit finished(0);
        return;
    }
    const Step &step = _steps.at(_index);
    if (needsDaemon(step.kind) && !_panel.isReady())
        return startDaemon();
    print(QStringLiteral("%1: %2").arg(step.line).arg(step.source));
    execute(step);
}

void ScriptRunner::startDaemon()
{
    if (!_panel.isStarted()) {
        print(_panel.listenOnly()
                  ? QStringLiteral("waiting for a daemon started by hand with PANEL_SETUP_ROOT=%1 "
                                   "PANEL_SETUP_COLLECTOR_PORT=%2 PANEL_SETUP_DRIVER_PORT=%3 PATH=%4:$PATH")
                        .arg(_panel.sandbox().root())
                        .arg(_panel.collectorPort())
                        .arg(_panel.driverPort())
                        .arg(_panel.sandbox().binDir())
                  : QStringLiteral("starting the daemon"));
        QString error;
        if (!_panel.startDaemon(&error))
            return fail(error);
    }
    if (_panel.isReady())
        return next();
    _deadline.start(StartTimeout * _timeScale);
}

void ScriptRunner::execute(const Step &step)
{
    auto advance = [this] {
        ++_index;
        QMetaObject::invokeMethod(this, &ScriptRunner::next, Qt::QueuedConnection);
    };
    QList<int> keys;
    for (const QString &word : step.keys)
        keys << resolveKey(word);

    switch (step.kind) {
    case Kind::Start:
        return advance();
    case Kind::Press:
        for (int key : keys)
            _panel.press(key);
        return advance();
    case Kind::Release:
        for (int key : keys)
            _panel.release(key);
        return advance();
    case Kind::Tap:
        for (int key : keys)
            _panel.tap(key);
        return advance();
    case Kind::Hold:
        return _panel.hold(keys, step.msecs, advance);
    case Kind::Turn:
        _panel.turn(step.numbers[0], step.numbers[1]);
        return advance();
    case Kind::Gpi:
        _panel.setGpi(step.numbers[0], step.numbers[1] != 0);
        return advance();
    case Kind::Wait:
        return QTimer::singleShot(step.msecs, Qt::PreciseTimer, this, advance);
    case Kind::Write:
        if (!_panel.sandbox().writeFile(step.path, step.text.toUtf8()))
            return fail(QStringLiteral("cannot write %1").arg(_panel.sandbox().hostPath(step.path)));
        return advance();
    case Kind::Remove:
        if (!_panel.sandbox().removeFile(step.path))
            return fail(QStringLiteral("cannot remove %1").arg(_panel.sandbox().hostPath(step.path)));
        return advance();
    case Kind::Dump:
        for (const QString &line : paneltext::dump(_panel))
            print(QStringLiteral("  ") + line);
        return advance();
    case Kind::ExpectCommand:
        _expecting = true;
        _commandResult = {false, QStringLiteral("the command has not ended yet")};
        _deadline.start(step.msecs * _timeScale);
        return startCommand();
    default:
        _expecting = true;
        _deadline.start(step.msecs * _timeScale);
        _recheck.start();
        return evaluate();
    }
}

void ScriptRunner::startCommand()
{
    _command.start(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), _steps.at(_index).text});
}

void ScriptRunner::evaluate()
{
    if (!_expecting || _done || !check(_steps.at(_index)).met)
        return;
    _expecting = false;
    _deadline.stop();
    _recheck.stop();
    ++_index;
    QMetaObject::invokeMethod(this, &ScriptRunner::next, Qt::QueuedConnection);
}

ScriptRunner::Check ScriptRunner::check(const Step &step) const
{
    const PanelModel &panel = _panel.panel();
    const int *n = step.numbers;
    switch (step.kind) {
    case Kind::ExpectLine: {
        const bool drawn = panel.lines(n[0]).contains(n[1]);
        const QString text = panel.text(n[0], n[1]);
        const bool highlighted = panel.isHighlighted(n[0], n[1]);
        const bool highlightOk = step.highlight == Highlight::Any
                                 || highlighted == (step.highlight == Highlight::Highlighted);
        return {text == step.text && highlightOk,
                drawn ? QStringLiteral("line %1 %2 is %3 %4")
                            .arg(n[0])
                            .arg(n[1])
                            .arg(quoted(text), highlighted ? QStringLiteral("highlighted") : QStringLiteral("plain"))
                      : QStringLiteral("nothing is drawn on line %1 %2").arg(n[0]).arg(n[1])};
    }
    case Kind::ExpectMark: {
        QStringList marks;
        for (const PanelModel::Overlay &overlay : panel.overlays(n[0])) {
            if (overlay.row != n[1])
                continue;
            if (overlay.column == n[2] && overlay.text == step.text)
                return {true, QString()};
            marks << QStringLiteral("%1 at column %2").arg(quoted(overlay.text)).arg(overlay.column);
        }
        return {false, marks.isEmpty() ? QStringLiteral("nothing painted on row %1 of screen %2").arg(n[1]).arg(n[0])
                                       : QStringLiteral("row %1 of screen %2 has %3")
                                             .arg(n[1])
                                             .arg(n[0])
                                             .arg(marks.join(QStringLiteral(", ")))};
    }
    case Kind::ExpectLight: {
        const int key = resolveKey(step.keys.first());
        const PanelModel::KeyLight light = panel.keyLight(key);
        return {light.level1 == n[0] && (step.count < 2 || light.level2 == n[1]),
                QStringLiteral("key %1 has %2 %3").arg(key).arg(light.level1).arg(light.level2)};
    }
    case Kind::ExpectLed:
        return {panel.statusLed(n[0]) == n[1],
                QStringLiteral("%1 is %2").arg(VirtualPanel::LedNames.at(n[0])).arg(panel.statusLed(n[0]))};
    case Kind::ExpectLevel: {
        const qint32 level = n[0] == 0 ? panel.tftLevel() : panel.keyLightLevel();
        return {level == n[1], QStringLiteral("the level is %1").arg(level)};
    }
    case Kind::ExpectFile:
    case Kind::ExpectFileContains:
    case Kind::ExpectFileMissing: {
        const Sandbox &sandbox = _panel.sandbox();
        const bool exists = sandbox.exists(step.path);
        const QString content = QString::fromUtf8(sandbox.readFile(step.path));
        const QString actual = exists ? QStringLiteral("%1 holds %2").arg(step.path, quoted(content))
                                      : QStringLiteral("%1 is missing").arg(step.path);
        if (step.kind == Kind::ExpectFileMissing)
            return {!exists, actual};
        if (step.kind == Kind::ExpectFileContains)
            return {exists && content.contains(step.text), actual};
        return {exists && content == step.text, actual};
    }
    case Kind::ExpectCalls: {
        const QStringList calls = _panel.sandbox().calls();
        QStringList shown;
        for (const QString &call : calls)
            shown << quoted(call);
        return {calls == step.texts,
                calls.isEmpty() ? QStringLiteral("no calls") : QStringLiteral("calls ") + shown.join(QLatin1Char(' '))};
    }
    case Kind::ExpectCommand:
        return _commandResult;
    default:
        return {true, QString()};
    }
}

int ScriptRunner::resolveKey(const QString &word) const
{
    if (word == QLatin1String("select"))
        return 28;
    if (word == QLatin1String("back"))
        return 2;
    if (word == QLatin1String("act1") || word == QLatin1String("act2")) {
        const QList<int> keys = _panel.activationKeys();
        return word == QLatin1String("act1") ? keys.first() : keys.last();
    }
    return word.toInt();
}

void ScriptRunner::fail(const QString &why)
{
    if (_done)
        return;
    _done = true;
    _deadline.stop();
    _recheck.stop();
    if (_command.state() != QProcess::NotRunning) {
        _command.kill();
        _command.waitForFinished(1000);
    }
    if (_index < _steps.size())
        print(QStringLiteral("%1:%2: FAILED: %3").arg(_name).arg(_steps.at(_index).line).arg(_steps.at(_index).source));
    print(QStringLiteral("  ") + why);
    print(QStringLiteral("The panel shows:"));
    for (const QString &line : paneltext::dump(_panel))
        print(QStringLiteral("  ") + line);
    const QStringList log = _panel.daemonLogTail(20);
    if (!log.isEmpty()) {
        print(QStringLiteral("The end of the daemon's log (%1):").arg(_panel.daemonLogPath()));
        for (const QString &line : log)
            print(QStringLiteral("  ") + line);
    }
    emit finished(1);
}

void ScriptRunner::print(const QString &line) const
{
    std::printf("[%6.2f s] %s\n", double(_clock.elapsed()) / 1000.0, line.toLocal8Bit().constData());
    std::fflush(stdout);
}
