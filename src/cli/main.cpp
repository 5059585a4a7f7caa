#include "ovcliregistry.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QLoggingCategory>

namespace {
void printUsage()
{
    QString text = QStringLiteral("Usage: kavot-cli <command> [arguments]\n\nCommands:\n");
    for (const auto &c : OVCliRegistry::commands())
        text += QStringLiteral("  %1  %2\n").arg(c->name(), -10).arg(c->summary());
    text += QStringLiteral("\n'kavot-cli <command> --help' describes one command.");
    std::fputs(text.toUtf8().constData(), stderr);
    std::fputc('\n', stderr);
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("kavot-cli"));
    QCoreApplication::setApplicationVersion(QStringLiteral("1.1.0"));
    // The libraries' debug lines are for the application log, not for a tool's output.
    if (qEnvironmentVariableIsEmpty("KAVOT_CLI_VERBOSE"))
        QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false\n*.warning=false"));

    QStringList args = QCoreApplication::arguments();
    if (args.size() < 2 || args[1] == QLatin1String("--help") || args[1] == QLatin1String("-h")) {
        printUsage();
        return args.size() < 2 ? OVCliCommand::UsageError : OVCliCommand::Success;
    }
    const QString name = args.takeAt(1);
    const auto command = OVCliRegistry::find(name);
    if (!command) {
        std::fprintf(stderr, "kavot-cli: unknown command '%s'\n", qPrintable(name));
        printUsage();
        return OVCliCommand::UsageError;
    }
    QCommandLineParser parser;
    parser.setApplicationDescription(command->summary());
    parser.addHelpOption();
    command->setup(parser);
    if (!parser.parse(args)) {
        std::fprintf(stderr, "kavot-cli %s: %s\n", qPrintable(name), qPrintable(parser.errorText()));
        return OVCliCommand::UsageError;
    }
    if (parser.isSet(QStringLiteral("help"))) {
        std::fputs(parser.helpText()
                       .replace(args.first(), args.first() + QLatin1Char(' ') + name)
                       .toUtf8()
                       .constData(),
            stdout);
        return OVCliCommand::Success;
    }
    return command->run(parser);
}
