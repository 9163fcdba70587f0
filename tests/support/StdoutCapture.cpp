#include "StdoutCapture.h"

#include <cstdio>

#include <unistd.h>

StdoutCapture::StdoutCapture()
{
    if (!_file.open())
        return;
    fflush(stdout);
    _saved = dup(STDOUT_FILENO);
    dup2(_file.handle(), STDOUT_FILENO);
}

StdoutCapture::~StdoutCapture()
{
    if (_saved < 0)
        return;
    fflush(stdout);
    dup2(_saved, STDOUT_FILENO);
    close(_saved);
}

QByteArray StdoutCapture::text() const
{
    if (_saved < 0)
        return QByteArray();
    fflush(stdout);
    // pread leaves the offset alone, which stdout shares with the file.
    QByteArray bytes;
    char buffer[4096];
    ssize_t n;
    for (off_t offset = 0; (n = pread(_file.handle(), buffer, sizeof buffer, offset)) > 0;
         offset += n)
        bytes.append(buffer, int(n));
    return bytes;
}
