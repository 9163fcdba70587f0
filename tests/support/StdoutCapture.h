#ifndef STDOUTCAPTURE_H
#define STDOUTCAPTURE_H

#include <QByteArray>
#include <QTemporaryFile>

// Redirects the process's standard output (file descriptor 1, so printf and
// anything else writing there) into a temporary file while an instance lives.
// Keep the captured stretch short: QtTest writes its own log to stdout too.
// One instance at a time.
class StdoutCapture
{
public:
    StdoutCapture();
    ~StdoutCapture();
    StdoutCapture(const StdoutCapture &) = delete;
    StdoutCapture &operator=(const StdoutCapture &) = delete;

    // Everything written to stdout since construction (flushes stdout first).
    QByteArray text() const;

private:
    QTemporaryFile _file;
    int _saved = -1;
};

#endif // STDOUTCAPTURE_H
