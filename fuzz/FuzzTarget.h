#ifndef FUZZTARGET_H
#define FUZZTARGET_H

#include "support/TestRoot.h"

#include <QCoreApplication>
#include <QString>

#include <cstdio>
#include <cstdlib>

// What every libFuzzer target here sets up once and how it fails.
namespace fuzztarget {

inline const char *targetName = "fuzz";

// Aborts with "<target>: <what>" when condition is false; libFuzzer then
// keeps the input.
inline void check(bool condition, const char *what)
{
    if (condition)
        return;
    fprintf(stderr, "%s: %s\n", targetName, what);
    abort();
}

// For the targets' message handlers: a fatal message aborts, with its text
// (libFuzzer's report only shows the stack).
inline void abortOnFatal(QtMsgType type, const QString &text)
{
    if (type != QtFatalMsg)
        return;
    fprintf(stderr, "%s: fatal: %s\n", targetName, qPrintable(text));
    abort();
}

// Once, from LLVMFuzzerInitialize: the Qt application, the message handler,
// and a fresh root on the RAM disk (inputs rewrite its files all the time) as
// PANEL_SETUP_ROOT.
inline TestRoot &start(const char *name, char **argv, QtMessageHandler handler)
{
    targetName = name;
    static int qtArgc = 1;
    static QCoreApplication app(qtArgc, argv);
    qInstallMessageHandler(handler);
    static TestRoot root(TestRoot::ramTemplate(QString::fromLatin1(name)));
    check(root.install(), "no temporary directory");
    return root;
}

} // namespace fuzztarget

#endif // FUZZTARGET_H
