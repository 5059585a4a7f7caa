#include "app/ovcommandline.h"

#include "kavotversion.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>

#include <cstdio>
#include <cstring>

namespace {
const char *const kHelpNames[] = { "-h", "--help", "-?", "-v", "--version" };
}

bool OVCommandLine::asksForHelpOrVersion(int argc, const char *const *argv)
{
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--") == 0)
            return false; // what follows are file names
        for (const char *name : kHelpNames) {
            if (std::strcmp(argv[i], name) == 0)
                return true;
        }
    }
    return false;
}

OVCommandLine::OVCommandLine(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QCoreApplication::translate(
        "OVCommandLine", "Observe, code and transcribe recorded video. Opens the projects (.kvpr) and "
                         "recordings given; a second start hands them to the running instance."));
    // Our own help option rather than addHelpOption(): its "--help-all" would list Qt's options,
    // which this program does not take.
    const QCommandLineOption help({ QStringLiteral("h"), QStringLiteral("help"), QStringLiteral("?") },
                                  QCoreApplication::translate("OVCommandLine", "Show this help and exit."));
    const QCommandLineOption version({ QStringLiteral("v"), QStringLiteral("version") },
                                     QCoreApplication::translate("OVCommandLine", "Show the version and exit."));
    const QCommandLineOption commLog(
        QStringLiteral("commlog"),
        QCoreApplication::translate("OVCommandLine", "Log the web service's communication to <file>."),
        QStringLiteral("file"));
    QCommandLineOption crash(QStringLiteral("simulate-crash"));
    crash.setFlags(QCommandLineOption::HiddenFromHelp);
    parser.addOptions({ help, version, commLog, crash });
    parser.addPositionalArgument(QStringLiteral("files"),
                                 QCoreApplication::translate("OVCommandLine", "Projects or recordings to open."),
                                 QStringLiteral("[files...]"));

    const bool parsed = parser.parse(arguments);
    // Help and version win over a bad option beside them: the user asked how to call us.
    if (parser.isSet(help)) {
        m_outcome = ShowHelp;
        m_text = parser.helpText();
        return;
    }
    if (parser.isSet(version)) {
        m_outcome = ShowVersion;
        m_text = QStringLiteral("%1 %2 (build %3, revision %4)\n")
                     .arg(QCoreApplication::applicationName(), QCoreApplication::applicationVersion())
                     .arg(KAVOT_BUILD_NUMBER)
                     .arg(QStringLiteral(KAVOT_REVISION));
        return;
    }
    if (!parsed) {
        m_outcome = Invalid;
        const QString program = arguments.isEmpty() ? QStringLiteral("kavot") : arguments.first();
        m_text = parser.errorText() + QLatin1Char('\n')
                 + QCoreApplication::translate("OVCommandLine", "Try '%1 --help' for more information.\n").arg(program);
        return;
    }
    m_commLog = parser.value(commLog);
    m_simulateCrash = parser.isSet(crash);
    for (const QString &file : parser.positionalArguments())
        m_files << QDir::current().absoluteFilePath(file);
}

int OVCommandLine::printAndExitCode() const
{
    if (m_outcome == Run)
        return 0;
    const QByteArray bytes = m_text.toLocal8Bit();
    FILE *out = m_outcome == Invalid ? stderr : stdout;
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), out);
    std::fflush(out);
    return m_outcome == Invalid ? 1 : 0;
}
