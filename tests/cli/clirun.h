#pragma once

#include <QByteArray>
#include <QStringList>

// The outcome of one run of the built kavot-cli.
struct CliRun
{
    int code = -1; // -1: did not finish, -2: crashed
    QByteArray out;
    QByteArray err;
};

CliRun runCli(const QStringList &args);
// Runs the ffmpeg tool quietly, overwriting its output; true when it succeeded.
bool runFfmpeg(const QStringList &args);
