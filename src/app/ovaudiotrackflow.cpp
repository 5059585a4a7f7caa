#include "app/ovaudiotrackflow.h"

#include "app/ovapplogging.h"
#include "app/oveditaudiotracksdlg.h"
#include "app/ovplayerpanel.h"
#include "media/ovmediainfo.h"
#include "media/ovvideoplayer.h"
#include "settings/ovuisettings.h"
#include "sync/ovaudiostreamsforsyncpickerdlg.h"
#include "sync/ovmanualsyncdlg.h"
#include "sync/ovmanualsyncmerge.h"
#include "widgets/ovwaitwidgetwithprogress.h"

#include <QCloseEvent>
#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QEventLoop>
#include <QFileDialog>
#include <QFileInfo>
#include <QMainWindow>
#include <QMenuBar>
#include <QMessageBox>
#include <QStorageInfo>

namespace {

bool holdsSeveralAudioStreams(const QString &path)
{
    static const QStringList single { QStringLiteral("wav"), QStringLiteral("mp3"), QStringLiteral("flac"),
                                      QStringLiteral("aac"), QStringLiteral("ac3"), QStringLiteral("aif"),
                                      QStringLiteral("aiff"), QStringLiteral("au") };
    return !single.contains(QFileInfo(path).suffix().toLower());
}

// Keeps the window open while its recording is being rewritten: closing would end the session
// in the middle of the work (the file itself would survive, the work would not).
class CloseBlocker : public QObject
{
public:
    explicit CloseBlocker(QWidget *window) : m_window(window) { window->installEventFilter(this); }
    ~CloseBlocker() override { m_window->removeEventFilter(this); }
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (watched == m_window && event->type() == QEvent::Close) {
            event->ignore();
            return true;
        }
        return false;
    }

private:
    QWidget *m_window;
};

} // namespace

OVAudioTrackFlow::OVAudioTrackFlow(QMainWindow *window, OVPlayerPanel *player)
    : QObject(window), m_window(window), m_player(player)
{
}

OVAudioTrackFlow::~OVAudioTrackFlow() = default;

QString OVAudioTrackFlow::backupPath(const QString &media)
{
    const QFileInfo info(media);
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-hhmmss"));
    QString path = info.dir().filePath(QStringLiteral("%1.backup-%2.%3").arg(info.completeBaseName(), stamp, info.suffix()));
    // Two rewrites within one second must not share a backup.
    for (int n = 2; QFileInfo::exists(path); ++n)
        path = info.dir().filePath(
            QStringLiteral("%1.backup-%2-%3.%4").arg(info.completeBaseName(), stamp).arg(n).arg(info.suffix()));
    return path;
}

QString OVAudioTrackFlow::chooseSecondaryPath()
{
    const QString dir = QFileInfo(m_player->mediaPath()).absolutePath();
    return QFileDialog::getOpenFileName(m_window, tr("Choose the second recording of the event"), dir,
                                        tr("Video or audio (*.mp4 *.mov *.mkv *.avi *.m4v *.webm *.mts *.mpg *.wmv "
                                           "*.wav *.mp3 *.m4a *.aac *.flac *.ogg *.opus *.wma);;All files (*)"));
}

void OVAudioTrackFlow::showError(const QString &title, const QString &message)
{
    QMessageBox::warning(m_window, title, message);
}

void OVAudioTrackFlow::showInfo(const QString &title, const QString &message)
{
    QMessageBox::information(m_window, title, message);
}

bool OVAudioTrackFlow::confirm(const QString &title, const QString &question)
{
    return QMessageBox::question(m_window, title, question) == QMessageBox::Yes;
}

bool OVAudioTrackFlow::probe(const QString &path, OVMediaInfo *info)
{
    const OV::Error error = OVMediaInfo::probe(path, info);
    if (error.isOk())
        return true;
    qCWarning(lcApp).noquote() << "OVAudioTrackFlow: cannot read the streams of" << path << ":" << error.message();
    showError(tr("Add Audio Track"), tr("Failed to open file\n\t") + QDir::toNativeSeparators(path));
    return false;
}

OV::Error OVAudioTrackFlow::runMerge(OVManualSyncMerge &merge, const QString &title, QWidget *cover,
                                     const std::function<bool()> &start)
{
    // Over a whole window: a splitter or layout would take the pane in as one of its own.
    OVWaitWidgetWithProgress wait(cover);
    connect(&wait, &OVWaitWidgetWithProgress::cancelClicked, &merge, &OVManualSyncMerge::cancel);
    connect(&merge, &OVManualSyncMerge::actionChanged, &wait, [&] { wait.setText(merge.action()); });
    connect(&merge, &OVManualSyncMerge::progressChanged, &wait, &OVWaitWidgetWithProgress::setProgress);
    OV::Error result(-1, tr("The rewrite did not start"));
    QEventLoop loop;
    connect(&merge, &OVManualSyncMerge::finished, &loop, [&](const OV::Error &error) {
        result = error;
        loop.quit();
    });
    // Nothing in the window may open, close or rewrite the recording meanwhile.
    CloseBlocker blocker(m_window);
    const bool menus = m_window->menuBar()->isEnabled();
    m_window->menuBar()->setEnabled(false);
    wait.startWait(title);
    if (start())
        loop.exec();
    wait.endWait();
    m_window->menuBar()->setEnabled(menus);
    return result;
}

void OVAudioTrackFlow::setSettings(OVUISettings *settings)
{
    m_settings = settings;
}

int OVAudioTrackFlow::rememberedAudioStream(const QString &media) const
{
    if (!m_settings || media.isEmpty())
        return 0;
    return m_settings->playingAudioStream(QFileInfo(media).absoluteFilePath());
}

void OVAudioTrackFlow::choosePlayingStream(const QString &media, int nth)
{
    m_player->player()->setPreferredAudioStream(nth);
    rememberPlayingStream(media, nth);
}

void OVAudioTrackFlow::rememberPlayingStream(const QString &media, int nth)
{
    if (m_settings)
        m_settings->setPlayingAudioStream(QFileInfo(media).absoluteFilePath(), nth);
}

void OVAudioTrackFlow::reopen(const QString &path, double position, bool paused, int audioStream)
{
    // The rewritten file is opened once, with its stream chosen, instead of restarting the old run first.
    if (audioStream >= 0)
        rememberPlayingStream(path, audioStream);
    m_player->openMedia(path, position, paused, audioStream >= 0 ? audioStream : rememberedAudioStream(path));
    Q_EMIT recordingRewritten(path);
}

void OVAudioTrackFlow::addAudioTrack()
{
    if (m_busy)
        return;
    const QString primary = m_player->mediaPath();
    if (primary.isEmpty()) {
        showError(tr("Add Audio Track"), tr("Open a video or audio recording first: the new track is added to it."));
        return;
    }
    const QString secondary = chooseSecondaryPath();
    if (secondary.isEmpty())
        return;
    if (QFileInfo(secondary).canonicalFilePath() == QFileInfo(primary).canonicalFilePath()) {
        showError(tr("Add Audio Track"), tr("Choose another recording than the one that plays:\n\t%1")
                                              .arg(QDir::toNativeSeparators(secondary)));
        return;
    }
    OVMediaInfo primaryInfo, secondaryInfo;
    if (!probe(primary, &primaryInfo) || !probe(secondary, &secondaryInfo))
        return;

    OVAudioStreamsForSyncPickerDlg picker(primaryInfo, secondaryInfo, m_window);
    picker.setPrimaryStream(std::max(0, m_player->player()->preferredAudioStream()));
    if (picker.exec() != QDialog::Accepted || !picker.isUsable())
        return;
    if (picker.replaceIndex() < 0 && !holdsSeveralAudioStreams(primary)) {
        showError(tr("Add Audio Track"),
                  tr("A %1 file holds one audio stream only, so no stream can be added to\n\t%2\n\nChoose to replace "
                     "its stream, or add the track to a video or MKV/MP4 recording.")
                      .arg(QFileInfo(primary).suffix().toUpper(), QDir::toNativeSeparators(primary)));
        return;
    }

    m_busy = true;
    const double position = m_player->shownPosition();
    const bool paused = m_player->player()->isPaused();
    if (!paused)
        m_player->togglePlayback();

    OVManualSyncDlg sync(m_window);
    sync.setWindowTitle(tr("Add Audio Track - %1").arg(QFileInfo(secondary).fileName()));
    if (!sync.loadSamples(primary, picker.primaryStream(), secondary, picker.secondaryStream())
        || sync.exec() != QDialog::Accepted) {
        m_busy = false;
        return;
    }
    const OVSamples aligned = sync.alignedSecondary();

    const QString backup = backupPath(primary);
    // The backup and the rewritten file sit beside the recording, each as large as it.
    const qint64 needed = 2 * QFileInfo(primary).size() + aligned.count * 2;
    const QStorageInfo storage(QFileInfo(primary).absolutePath());
    if (storage.isValid() && storage.bytesAvailable() < needed) {
        showError(tr("Failed to add audio stream"),
                  tr("There is not enough free space beside the recording for its backup and the new file "
                     "(%1 MB needed):\n\t%2")
                      .arg(needed / (1024 * 1024))
                      .arg(QDir::toNativeSeparators(primary)));
        m_busy = false;
        return;
    }
    // The new stream's number as the user counts them, for the report.
    const int audioCount = int(OVAudioStreamsForSyncPickerDlg::audioStreams(primaryInfo).size());
    const int newStream = picker.replaceIndex() >= 0 ? picker.replaceIndex() : audioCount;

    OVManualSyncMerge merge;
    const OV::Error error = runMerge(merge, tr("Adding audio track"), m_window, [&] {
        return merge.start(primary, backup, QString(), &sync.primarySamples(), &aligned, picker.replaceIndex(),
                           picker.streamCount());
    });
    m_busy = false;
    if (!error.isOk()) {
        showError(tr("Failed to add audio stream"), error.message());
        return;
    }
    reopen(primary, position, true, -1);
    showInfo(tr("Add Audio Track"),
             tr("The synchronized sound is now %1 of\n\t%2\n\nFile > Edit Audio Tracks chooses the stream that "
                "plays.\nThe recording as it was is kept in\n\t%3")
                 .arg(tr("(Audio #%1)").arg(newStream + 1), QDir::toNativeSeparators(primary),
                      QDir::toNativeSeparators(backup)));
}

void OVAudioTrackFlow::editAudioTracks()
{
    const QString media = m_player->mediaPath();
    if (media.isEmpty()) {
        showError(tr("Edit Audio Tracks"), tr("Open a video or audio recording first."));
        return;
    }
    OVMediaInfo info;
    if (!probe(media, &info))
        return;
    OVEditAudioTracksDlg dialog(m_window);
    m_editDialog = &dialog;
    dialog.setStreams(info, m_player->player()->preferredAudioStream());
    connect(&dialog, &OVEditAudioTracksDlg::playRequested, this, &OVAudioTrackFlow::playStream);
    connect(&dialog, &OVEditAudioTracksDlg::removeRequested, this, &OVAudioTrackFlow::removeStream);
    dialog.exec();
}

void OVAudioTrackFlow::playStream(int nth)
{
    if (nth < 0)
        return;
    choosePlayingStream(m_player->mediaPath(), nth);
    if (m_editDialog) {
        OVMediaInfo info;
        if (OVMediaInfo::probe(m_player->mediaPath(), &info).isOk())
            m_editDialog->setStreams(info, nth);
    }
}

void OVAudioTrackFlow::removeStream(int nth)
{
    const QString media = m_player->mediaPath();
    if (nth < 0 || media.isEmpty() || m_busy)
        return;
    const QString label = tr("(Audio #%1)").arg(nth + 1);
    if (!confirm(tr("Edit Audio Tracks"), tr("Remove %1 from\n\t%2?\n\nA backup copy of the recording is kept beside it.")
                                              .arg(label, QDir::toNativeSeparators(media))))
        return;
    m_busy = true;
    const double position = m_player->shownPosition();
    const bool paused = m_player->player()->isPaused();
    const int playing = m_player->player()->preferredAudioStream();
    const QString backup = backupPath(media);
    OVManualSyncMerge merge;
    // Over the dialog the removal was asked from, which would hide the pane otherwise.
    QWidget *cover = m_editDialog ? static_cast<QWidget *>(m_editDialog.data()) : m_window;
    const OV::Error error = runMerge(merge, tr("Removing audio track"), cover,
                                     [&] { return merge.startRemoval(media, backup, nth); });
    m_busy = false;
    if (!error.isOk()) {
        showError(tr("Failed to remove audio stream"), error.message());
        return;
    }
    // The streams after the removed one move up by one.
    const int nowPlaying = playing == nth ? 0 : (playing > nth ? playing - 1 : playing);
    reopen(media, position, paused, nowPlaying);
    if (m_editDialog) {
        OVMediaInfo info;
        if (OVMediaInfo::probe(media, &info).isOk())
            m_editDialog->setStreams(info, nowPlaying);
    }
    showInfo(tr("Edit Audio Tracks"), tr("%1 was removed. The recording as it was is kept in\n\t%2")
                                          .arg(label, QDir::toNativeSeparators(backup)));
}
