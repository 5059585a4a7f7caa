#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QProcess>
#include <QStringList>

// Runs the `ffmpeg` command-line tool as a child process for conversions, cutting and joining, and
// turns its console output into progress.
class NXFFmpegWrapper : public QObject
{
    Q_OBJECT

public:
    enum ErrorCode {
        NoError = 0,
        BinaryMissing = 1,
        FFmpegError = 2,
        OutputLocked = 3,
        StoppedByUser = 4,
        TempFileError = 5,
        UnknownError = 6
    };
    Q_ENUM(ErrorCode)

    // Argument templates; fill with arguments() so quoted paths stay one argument.
    static const QString CutFromTemplate; // %1 start, %2 input
    static const QString CopyLengthTemplate; // %1 input, %2 length, %3 output
    static const QString ConcatTemplate; // %1 list file, %2 output
    static const QString LoopImageTemplate; // %1 image

    // What the tool's output told so far. Pure data so the parser can be tested on captured text.
    struct OutputState
    {
        double total = -1.0; // seconds, from the first "Duration:" line; negative until seen
        double done = -1.0; // seconds, from the last " time=" entry; negative until seen
        bool problematicFragment = false; // "Apple Alias Data Handler" was seen
        QString pending; // an incomplete last line kept for the next chunk
    };

    static const QString ProblematicFragment;
    static const QString ProblematicFragmentDescription;

    explicit NXFFmpegWrapper(QObject *parent = nullptr);
    ~NXFFmpegWrapper() override;

    static QString errorMessage(ErrorCode code);
    static QString errorMessage(int code);

    // The tool beside our executable, else the one on PATH; empty when there is none.
    static QString defaultToolPath();
    // Overrides where the tool is looked for (an empty path restores the default search).
    void setToolPath(const QString &path);
    QString toolPath() const;

    // Runs the tool with "-decoders" and checks its banner ("ffmpeg version"). Blocks up to `msecs`.
    static bool checkTool(const QString &path, int msecs = 10000);

    // Fills a template with `values` (%1, %2, ...) and splits it like a shell would.
    static QStringList arguments(const QString &templ, const QStringList &values);

    // Feeds a chunk of the tool's output to `state`. Lines may be split anywhere across chunks and
    // end in "\r" (progress) or "\n".
    static void parseOutput(OutputState &state, const QString &chunk);
    // Seconds left from the work done so far and the time it took; negative when unknown.
    static double estimateRemaining(double done, double total, double elapsedSeconds);

    // Starts the tool; false when it is already running or missing (finished(BinaryMissing) is
    // emitted in that case too).
    bool start(const QStringList &arguments);
    bool isRunning() const;
    // Stops a running tool; finished(StoppedByUser) follows.
    void stop();
    // Waits until the tool ends (for callers off the GUI thread); false on time-out.
    bool waitForFinished(int msecs = 30000);

    ErrorCode lastError() const { return m_lastError; }
    // Everything the tool wrote, for callers that need more than progress.
    QString output() const { return m_output; }

Q_SIGNALS:
    // `percent` is the share done, from 0 to 1 (time reached / input duration); `timeremaining` is
    // the estimate in whole seconds, from the speed so far.
    void progress(qreal percent, quint64 timeremaining);
    void finished(NXFFmpegWrapper::ErrorCode error);
    void problematicFragmentDetected(QString fragment, QString description);

private Q_SLOTS:
    void onReadyRead();
    void onProcessError(QProcess::ProcessError error);
    void onProcessFinished(int exitCode, QProcess::ExitStatus exitStatus);

private:
    void finish(ErrorCode code);

    QString m_toolPath;
    QProcess *m_process = nullptr;
    OutputState m_state;
    QString m_output;
    QElapsedTimer m_timer;
    bool m_stopRequested = false;
    bool m_finishedSent = false;
    ErrorCode m_lastError = NoError;
};

Q_DECLARE_METATYPE(NXFFmpegWrapper::ErrorCode)
