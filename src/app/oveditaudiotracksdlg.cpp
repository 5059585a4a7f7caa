#include "app/oveditaudiotracksdlg.h"

#include "sync/ovaudiostreamsforsyncpickerdlg.h"

#include <QDialogButtonBox>
#include <QDir>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

OVEditAudioTracksDlg::OVEditAudioTracksDlg(QWidget *parent) : QDialog(parent)
{
    setWindowTitle(tr("Edit Audio Tracks"));
    m_file = new QLabel(this);
    m_file->setWordWrap(true);
    m_list = new QListWidget(this);
    m_list->setObjectName(QStringLiteral("lw_streams"));
    m_play = new QPushButton(tr("Play This Stream"), this);
    m_play->setObjectName(QStringLiteral("btn_play"));
    m_remove = new QPushButton(tr("Remove Stream..."), this);
    m_remove->setObjectName(QStringLiteral("btn_remove"));
    auto *close = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(close, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(m_list, &QListWidget::currentRowChanged, this, &OVEditAudioTracksDlg::updateButtons);
    connect(m_list, &QListWidget::itemDoubleClicked, this, [this] { Q_EMIT playRequested(selectedStream()); });
    connect(m_play, &QPushButton::clicked, this, [this] { Q_EMIT playRequested(selectedStream()); });
    connect(m_remove, &QPushButton::clicked, this, [this] { Q_EMIT removeRequested(selectedStream()); });

    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_play);
    buttons->addWidget(m_remove);
    buttons->addStretch();
    buttons->addWidget(close);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_file);
    layout->addWidget(m_list, 1);
    layout->addLayout(buttons);
    resize(480, 300);
}

void OVEditAudioTracksDlg::setStreams(const OVMediaInfo &info, int playing)
{
    const int keep = std::max(0, m_list->currentRow());
    m_file->setText(QDir::toNativeSeparators(info.path));
    m_playing = playing;
    m_hasVideo = std::any_of(info.streams.begin(), info.streams.end(),
                             [](const OVMediaInfo::Stream &s) { return s.type == QLatin1String("video"); });
    m_list->clear();
    const QList<OVMediaInfo::Stream> audio = OVAudioStreamsForSyncPickerDlg::audioStreams(info);
    for (int i = 0; i < audio.size(); ++i) {
        QString text = OVAudioStreamsForSyncPickerDlg::streamLabel(i, audio[i]);
        if (i == playing)
            text += tr("  (playing)");
        m_list->addItem(text);
    }
    if (audio.isEmpty())
        m_list->addItem(tr("This recording has no audio stream."));
    m_list->setCurrentRow(std::min(keep, int(audio.size()) - 1));
    m_list->setEnabled(!audio.isEmpty());
    updateButtons();
}

int OVEditAudioTracksDlg::selectedStream() const
{
    return m_list->isEnabled() ? m_list->currentRow() : -1;
}

void OVEditAudioTracksDlg::setSelectedStream(int nth)
{
    m_list->setCurrentRow(nth);
}

void OVEditAudioTracksDlg::updateButtons()
{
    const int nth = selectedStream();
    m_play->setEnabled(nth >= 0 && nth != m_playing);
    // A file of sound only keeps its last stream: without it there would be nothing left.
    m_remove->setEnabled(nth >= 0 && (m_hasVideo || m_list->count() > 1));
}
