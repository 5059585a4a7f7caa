#pragma once

#include <QString>

#include <cstdio>
#include <string>

class QCommandLineParser;

// One sub-command of kavot-cli. A new sub-command is a class pair deriving from this and one line
// in OVCliRegistry::commands().
class OVCliCommand
{
public:
    enum ExitCode { Success = 0, Failure = 1, UsageError = 2 };

    virtual ~OVCliCommand() = default;

    virtual QString name() const = 0;
    virtual QString summary() const = 0;
    // Declares the positional arguments and options of the sub-command.
    virtual void setup(QCommandLineParser &parser) const = 0;
    // Runs after the arguments were parsed; returns the process exit code.
    virtual int run(const QCommandLineParser &parser) const = 0;

protected:
    static void print(const QString &text) { write(stdout, text); }
    static void printError(const QString &text) { write(stderr, text); }
    static void write(FILE *stream, const QString &text)
    {
        const QByteArray bytes = text.toUtf8();
        std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
        std::fputc('\n', stream);
    }
    // A project file is anything but a label-set file (".kvtl").
    static bool isLabelSetPath(const QString &path)
    {
        return path.endsWith(QLatin1String(".kvtl"), Qt::CaseInsensitive);
    }
};
