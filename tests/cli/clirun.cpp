#include "clirun.h"

#include <QProcess>

CliRun runCli(const QStringList &args)
{
    QProcess p;
    p.start(qEnvironmentVariable("KAVOT_BUILD_DIR") + QStringLiteral("/src/cli/kavot-cli"), args);
    CliRun r;
    if (!p.waitForFinished(60000))
        return r;
    r.code = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -2;
    r.out = p.readAllStandardOutput();
    r.err = p.readAllStandardError();
    return r;
}

bool runFfmpeg(const QStringList &args)
{
    QProcess ff;
    ff.start(QStringLiteral("ffmpeg"), QStringList { "-hide_banner", "-loglevel", "error", "-y" } + args);
    return ff.waitForFinished(120000) && ff.exitCode() == 0;
}
