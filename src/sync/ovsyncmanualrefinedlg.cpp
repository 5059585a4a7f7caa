#include "sync/ovsyncmanualrefinedlg.h"

#include "sync/ovaudiooutsamples.h"

#include <QDebug>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSpinBox>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

OVSyncManualRefineDlg::OVSyncManualRefineDlg(const OVSamples *primary, const OVSamples *secondary, QWidget *parent)
    : QDialog(parent), m_primary(primary), m_secondary(secondary), m_player(new OVAudioOutSamples(this))
{
    setWindowTitle(tr("Fine Tune"));
    const double range = (primary ? primary->duration() : 0.0) + (secondary ? secondary->duration() : 0.0) + 1.0;

    m_offset = new QDoubleSpinBox(this);
    m_offset->setObjectName(QStringLiteral("sb_offset"));
    m_offset->setDecimals(4);
    m_offset->setRange(-range, range);
    m_offset->setSingleStep(NudgeSeconds);
    m_offset->setSuffix(tr(" s"));
    m_loop = new QDoubleSpinBox(this);
    m_loop->setObjectName(QStringLiteral("sb_loop"));
    m_loop->setRange(0.5, 10.0);
    m_loop->setSingleStep(0.5);
    m_loop->setValue(3.0);
    m_loop->setSuffix(tr(" s"));
    m_vol1 = new QSpinBox(this);
    m_vol1->setObjectName(QStringLiteral("sb_vol1"));
    m_vol1->setRange(0, 100);
    m_vol1->setValue(100);
    m_vol1->setSuffix(tr(" %"));
    m_vol2 = new QSpinBox(this);
    m_vol2->setObjectName(QStringLiteral("sb_vol2"));
    m_vol2->setRange(0, 100);
    m_vol2->setValue(100);
    m_vol2->setSuffix(tr(" %"));
    m_coeff = new QLabel(this);
    m_coeff->setObjectName(QStringLiteral("la_coeff"));
    m_left = new QPushButton(QStringLiteral("<"), this);
    m_left->setObjectName(QStringLiteral("btn_left"));
    m_left->setToolTip(tr("Move the secondary track %1 ms earlier").arg(NudgeSeconds * 1000));
    m_left->setAutoRepeat(true);
    m_right = new QPushButton(QStringLiteral(">"), this);
    m_right->setObjectName(QStringLiteral("btn_right"));
    m_right->setToolTip(tr("Move the secondary track %1 ms later").arg(NudgeSeconds * 1000));
    m_right->setAutoRepeat(true);
    m_refine = new QPushButton(tr("Auto Refine"), this);
    m_refine->setObjectName(QStringLiteral("btn_refine"));
    m_audioState = new QLabel(this);
    m_audioState->setObjectName(QStringLiteral("la_audio"));
    m_audioState->setWordWrap(true);

    auto *offsetRow = new QHBoxLayout;
    offsetRow->addWidget(m_left);
    offsetRow->addWidget(m_offset, 1);
    offsetRow->addWidget(m_right);
    auto *form = new QFormLayout;
    form->addRow(tr("Offset:"), offsetRow);
    form->addRow(tr("Loop duration:"), m_loop);
    form->addRow(tr("Volume #1:"), m_vol1);
    form->addRow(tr("Volume #2:"), m_vol2);
    form->addRow(tr("Correlation:"), m_coeff);
    auto *close = new QPushButton(tr("Close"), this);
    connect(close, &QPushButton::clicked, this, &QDialog::accept);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_refine);
    buttons->addStretch();
    buttons->addWidget(close);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(m_audioState);
    layout->addLayout(buttons);

    m_replay = new QTimer(this);
    m_replay->setSingleShot(true);
    m_replay->setInterval(60);
    connect(m_replay, &QTimer::timeout, this, &OVSyncManualRefineDlg::replay);
    m_player->setTracks(primary, secondary);

    connect(m_left, &QPushButton::clicked, this, &OVSyncManualRefineDlg::onLeftClicked);
    connect(m_right, &QPushButton::clicked, this, &OVSyncManualRefineDlg::onRightClicked);
    connect(m_refine, &QPushButton::clicked, this, &OVSyncManualRefineDlg::autoRefineRequested);
    connect(m_offset, &QDoubleSpinBox::valueChanged, this, [this] {
        scheduleReplay();
        Q_EMIT changed();
    });
    for (QSpinBox *box : { m_vol1, m_vol2 })
        connect(box, &QSpinBox::valueChanged, this, [this] {
            scheduleReplay();
            Q_EMIT changed();
        });
    connect(m_loop, &QDoubleSpinBox::valueChanged, this, [this] {
        scheduleReplay();
        Q_EMIT changed();
    });
}

OVSyncManualRefineDlg::~OVSyncManualRefineDlg()
{
    m_player->stop();
}

void OVSyncManualRefineDlg::setMarker(double primarySeconds, double offsetSeconds, double coefficient)
{
    m_primaryPos = primarySeconds;
    const QSignalBlocker block(m_offset);
    m_offset->setValue(offsetSeconds);
    setCoefficient(coefficient);
    scheduleReplay();
}

double OVSyncManualRefineDlg::offset() const
{
    return m_offset->value();
}

void OVSyncManualRefineDlg::setOffset(double seconds)
{
    m_offset->setValue(seconds);
}

void OVSyncManualRefineDlg::setCoefficient(double coefficient)
{
    m_coeff->setText(QString::number(coefficient, 'f', 4));
}

double OVSyncManualRefineDlg::loopDuration() const
{
    return m_loop->value();
}

double OVSyncManualRefineDlg::volume1() const
{
    return m_vol1->value() / 100.0;
}

double OVSyncManualRefineDlg::volume2() const
{
    return m_vol2->value() / 100.0;
}

void OVSyncManualRefineDlg::onLeftClicked()
{
    // The secondary's strip moves left: each of its sounds is then heard earlier.
    m_offset->setValue(m_offset->value() - NudgeSeconds);
}

void OVSyncManualRefineDlg::onRightClicked()
{
    m_offset->setValue(m_offset->value() + NudgeSeconds);
}

void OVSyncManualRefineDlg::showEvent(QShowEvent *event)
{
    QDialog::showEvent(event);
    scheduleReplay();
}

void OVSyncManualRefineDlg::hideEvent(QHideEvent *event)
{
    m_replay->stop();
    m_player->stop();
    QDialog::hideEvent(event);
}

void OVSyncManualRefineDlg::scheduleReplay()
{
    // Spin boxes change in bursts while a button is held; mix once the burst settles.
    if (isVisible())
        m_replay->start();
}

void OVSyncManualRefineDlg::replay()
{
    if (!m_primary || !m_secondary)
        return;
    const double loop = loopDuration();
    const double from = m_primaryPos - loop / 2;
    m_player->setLoop(from, from - offset(), loop);
    m_player->setVolumes(volume1(), volume2());
    if (m_player->isPlaying() || m_player->start()) {
        m_audioState->clear();
        return;
    }
    m_audioState->setText(tr("No sound output is available: the offset can be tuned by the correlation only."));
}
