#include "timeline/ovwaveformarea.h"

#include "widgets/ovwaveformpyramid.h"

#include <QPainter>

namespace {
const QColor Background(220, 220, 220);
const QColor Wave(40, 90, 160);
const QColor NameText(70, 70, 70);
constexpr int ProgressBarHeight = 3;
} // namespace

OVWaveformArea::OVWaveformArea(QWidget *parent)
    : QWidget(parent)
{
    setMinimumHeight(30);
}

OVWaveformArea::~OVWaveformArea() = default;

void OVWaveformArea::setCursorX(int x)
{
    if (x == m_cursorX)
        return;
    m_cursorX = x;
    update();
}

void OVWaveformArea::setMapping(const OVTimeMapping &mapping)
{
    if (mapping.left == m_mapping.left && mapping.offset == m_mapping.offset && mapping.pps == m_mapping.pps)
        return;
    m_mapping = mapping;
    update();
}

void OVWaveformArea::setTracks(const QList<Track> &tracks)
{
    m_tracks = tracks;
    update();
}

void OVWaveformArea::addTrack(const Track &track)
{
    m_tracks.append(track);
    update();
}

void OVWaveformArea::clearTracks()
{
    m_tracks.clear();
    update();
}

void OVWaveformArea::setLoading(bool loading)
{
    m_loading = loading;
    if (!loading)
        m_progress = -1.0;
    update();
}

void OVWaveformArea::setLoadingProgress(double share)
{
    m_progress = share;
    update();
}

void OVWaveformArea::setProblem(const QString &problem)
{
    m_problem = problem;
    update();
}

QString OVWaveformArea::message() const
{
    if (!m_problem.isEmpty())
        return m_problem;
    if (trackCount() > 0)
        return QString();
    if (m_loading)
        return tr("Loading samples") + QStringLiteral("...");
    return tr("No audio tracks found");
}

void OVWaveformArea::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.fillRect(rect(), Background);
    const QString text = message();
    const int nameRight = int(m_mapping.left);
    if (text.isEmpty() && !m_tracks.isEmpty()) {
        const int bands = int(m_tracks.size());
        for (int i = 0; i < bands; ++i) {
            const int top = i * height() / bands;
            const int bottom = (i + 1) * height() / bands;
            const QRect band(nameRight, top, std::max(0, width() - nameRight), bottom - top);
            p.setPen(QColor(190, 190, 190));
            p.drawLine(band.left(), band.center().y(), band.right(), band.center().y());
            if (m_tracks[i].waveform)
                m_tracks[i].waveform->paint(p, band, m_mapping.timeAt(band.left()), m_mapping.pps, Wave);
            if (i > 0) {
                p.setPen(QColor(170, 170, 170));
                p.drawLine(0, top, width(), top);
            }
            p.setPen(NameText);
            p.drawText(QRect(4, top, std::max(0, nameRight - 8), bottom - top), Qt::AlignVCenter | Qt::AlignLeft,
                       p.fontMetrics().elidedText(m_tracks[i].name, Qt::ElideRight, std::max(0, nameRight - 8)));
        }
    } else if (!text.isEmpty()) {
        p.setPen(Qt::darkGray);
        p.drawText(rect(), Qt::AlignCenter | Qt::TextWordWrap, text);
    }
    if (m_loading && m_progress >= 0.0)
        p.fillRect(QRect(0, height() - ProgressBarHeight, int(width() * std::min(1.0, m_progress)), ProgressBarHeight),
                   Wave);
    if (m_cursorX >= 0 && m_cursorX < width()) {
        p.setPen(QPen(Qt::yellow, 3));
        p.drawLine(m_cursorX, 0, m_cursorX, height());
        p.setPen(QPen(Qt::red, 1));
        p.drawLine(m_cursorX, 0, m_cursorX, height());
    }
}
