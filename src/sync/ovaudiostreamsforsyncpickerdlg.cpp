#include "sync/ovaudiostreamsforsyncpickerdlg.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileInfo>
#include <QFormLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

QList<OVMediaInfo::Stream> OVAudioStreamsForSyncPickerDlg::audioStreams(const OVMediaInfo &info)
{
    QList<OVMediaInfo::Stream> out;
    for (const OVMediaInfo::Stream &s : info.streams)
        if (s.type == QLatin1String("audio"))
            out.append(s);
    return out;
}

QString OVAudioStreamsForSyncPickerDlg::streamLabel(int nth, const OVMediaInfo::Stream &stream)
{
    QStringList facts;
    if (!stream.codec.isEmpty())
        facts << stream.codec;
    if (!stream.channelLayout.isEmpty())
        facts << stream.channelLayout;
    else if (stream.channels > 0)
        facts << tr("%n channel(s)", nullptr, stream.channels);
    if (stream.sampleRate > 0)
        facts << tr("%1 Hz").arg(stream.sampleRate);
    const QString label = tr("(Audio #%1)").arg(nth + 1);
    return facts.isEmpty() ? label : label + QLatin1Char(' ') + facts.join(QStringLiteral(", "));
}

OVAudioStreamsForSyncPickerDlg::OVAudioStreamsForSyncPickerDlg(const OVMediaInfo &primary, const OVMediaInfo &secondary,
                                                               QWidget *parent)
    : QDialog(parent)
{
    setWindowTitle(tr("Add Audio Track"));
    m_primary = new QComboBox(this);
    m_primary->setObjectName(QStringLiteral("cb_primary"));
    m_secondary = new QComboBox(this);
    m_secondary->setObjectName(QStringLiteral("cb_secondary"));
    m_target = new QComboBox(this);
    m_target->setObjectName(QStringLiteral("cb_target"));

    const QList<OVMediaInfo::Stream> a = audioStreams(primary);
    const QList<OVMediaInfo::Stream> b = audioStreams(secondary);
    m_primaryCount = int(a.size());
    for (int i = 0; i < a.size(); ++i)
        m_primary->addItem(streamLabel(i, a[i]), i);
    if (a.isEmpty()) {
        // The sync then has only the secondary's sound: markers can still be placed by hand.
        m_primary->addItem(tr("(no audio stream)"), -1);
        m_primary->setEnabled(false);
    }
    for (int i = 0; i < b.size(); ++i)
        m_secondary->addItem(streamLabel(i, b[i]), i);
    m_target->addItem(tr("Add as a new audio stream"), -1);
    for (int i = 0; i < a.size(); ++i)
        m_target->addItem(tr("Replace %1").arg(streamLabel(i, a[i])), i);

    auto *form = new QFormLayout;
    auto *primaryName = new QLabel(QFileInfo(primary.path).fileName(), this);
    auto *secondaryName = new QLabel(QFileInfo(secondary.path).fileName(), this);
    form->addRow(tr("Primary recording:"), primaryName);
    form->addRow(tr("Primary audio stream"), m_primary);
    form->addRow(tr("Secondary recording:"), secondaryName);
    form->addRow(tr("Secondary audio stream"), m_secondary);
    form->addRow(tr("Synchronized stream:"), m_target);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(form);
    if (b.isEmpty()) {
        m_usable = false;
        m_secondary->setEnabled(false);
        auto *why = new QLabel(tr("The secondary recording has no audio stream, so there is no sound to "
                                  "synchronize with:\n\t%1")
                                   .arg(secondary.path),
                               this);
        why->setObjectName(QStringLiteral("la_problem"));
        why->setWordWrap(true);
        layout->addWidget(why);
        buttons->button(QDialogButtonBox::Ok)->setEnabled(false);
    }
    layout->addWidget(buttons);
}

int OVAudioStreamsForSyncPickerDlg::primaryStream() const
{
    return m_primary->currentData().toInt();
}

int OVAudioStreamsForSyncPickerDlg::secondaryStream() const
{
    return m_secondary->count() ? m_secondary->currentData().toInt() : -1;
}

int OVAudioStreamsForSyncPickerDlg::replaceIndex() const
{
    return m_target->currentData().toInt();
}

int OVAudioStreamsForSyncPickerDlg::streamCount() const
{
    return replaceIndex() < 0 ? -1 : m_primaryCount;
}

void OVAudioStreamsForSyncPickerDlg::setPrimaryStream(int nth)
{
    m_primary->setCurrentIndex(std::max(0, m_primary->findData(nth)));
}

void OVAudioStreamsForSyncPickerDlg::setSecondaryStream(int nth)
{
    m_secondary->setCurrentIndex(std::max(0, m_secondary->findData(nth)));
}

void OVAudioStreamsForSyncPickerDlg::setReplaceIndex(int nth)
{
    m_target->setCurrentIndex(std::max(0, m_target->findData(nth)));
}
