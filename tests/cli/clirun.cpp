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
