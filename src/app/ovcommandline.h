#pragma once

#include <QString>
#include <QStringList>

// What the command line asks for: the projects and recordings to open and the few options. It
// reads the arguments without needing a window, so that "--help" and "--version" answer on a
// terminal that has no display.
class OVCommandLine
{
public:
    enum Outcome { Run, ShowHelp, ShowVersion, Invalid };

    // `arguments` as the application gives them: the program first.
    explicit OVCommandLine(const QStringList &arguments);

    // True when the raw arguments ask for help or the version before any "--": such a start
    // prints and leaves, and must not need a display to do so.
    static bool asksForHelpOrVersion(int argc, const char *const *argv);

    Outcome outcome() const { return m_outcome; }
    // Absolute paths of the projects and recordings to open, in the order given.
    QStringList files() const { return m_files; }
    // The value of "--commlog=", empty when absent.
    QString commLog() const { return m_commLog; }
    bool simulateCrash() const { return m_simulateCrash; }
    // The help text, the version, or the error followed by a hint, for outcomes other than Run.
    QString text() const { return m_text; }
    // Writes text() (help and version to standard output, errors to standard error) and returns
    // the exit code the program should end with.
    int printAndExitCode() const;

private:
    Outcome m_outcome = Run;
    QStringList m_files;
    QString m_commLog;
    bool m_simulateCrash = false;
    QString m_text;
};
