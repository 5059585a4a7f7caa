#include "timeline/ovtimelinelabelpainter.h"

#include "log/ovtimeformat.h"
#include "project/label.h"
#include "project/segment.h"
#include "project/timeline.h"
#include "timeline/ovtimelinelogging.h"

#include <QDebug>
#include <QFontMetrics>
#include <QPainter>

#include <algorithm>

using namespace OVProject;

namespace {
constexpr int BarMargin = 3;
constexpr int EdgeGrabPixels = 3;
constexpr int SwatchSize = 10;

double shownEnd(const Segment *s, double currentPos) { return s->isOpen() ? std::max(currentPos, s->start()) : s->end(); }

QColor textColorOn(const QColor &c)
{
    // Light, opaque bars get dark text; dark or mostly transparent ones light text.
    const int luma = (c.red() * 299 + c.green() * 587 + c.blue() * 114) / 1000;
    return (luma > 140 && c.alpha() > 100) ? QColor(Qt::black) : QColor(Qt::white);
}
} // namespace

OVTimelineLabelPainter::OVTimelineLabelPainter(Label *label, bool editable, QObject *parent)
    : QObject(parent)
    , m_label(label)
    , m_labelId(label ? label->id() : Id())
    , m_editable(editable)
{
    m_nameFont.setWeight(QFont::Bold);
    m_barFont.setPointSize(8);
}

Timeline *OVTimelineLabelPainter::timeline() const { return m_label ? m_label->timeline() : nullptr; }

void OVTimelineLabelPainter::setGeometry(const QRect &row, int nameWidth)
{
    m_rowRect = row;
    m_nameRect = QRect(row.left(), row.top(), nameWidth, row.height());
}

QRect OVTimelineLabelPainter::barRect(const OVTimeMapping &m, double start, double end, double currentPos) const
{
    if (end == Segment::OpenEnd)
        end = std::max(currentPos, start);
    const int x1 = m.xAt(start);
    const int x2 = std::max(m.xAt(end), x1 + MinBarPixels);
    return QRect(QPoint(x1, m_rowRect.top() + BarMargin), QPoint(x2 - 1, m_rowRect.bottom() - BarMargin));
}

void OVTimelineLabelPainter::paint(QPainter &p, const PaintContext &c) const
{
    if (!m_label || !m_rowRect.intersects(c.clip))
        return;
    const OVTimeMapping &m = c.mapping;
    const int left = int(m.left);
    const QRect timeArea(QPoint(left, m_rowRect.top()), m_rowRect.bottomRight());
    const QRect visible = timeArea & c.clip;

    p.save();
    const bool flashing = !c.flashed.isEmpty() && c.flashed == m_labelId;
    p.fillRect(visible, flashing ? QColor(255, 200, 120) : (c.rowIndex % 2) ? QColor(246, 246, 246) : QColor(Qt::white));
    p.setPen(QColor(225, 225, 225));
    p.drawLine(visible.left(), m_rowRect.bottom(), visible.right(), m_rowRect.bottom());

    // Rows that keyboard coding cannot reach (another user's timeline, a label without key).
    if (!m_editable || m_label->key().isNull())
        p.setOpacity(0.4);

    if (!visible.isEmpty()) {
        p.setClipRect(visible);
        const QColor fill = m_label->color().isValid() ? m_label->color() : QColor(Qt::gray);
        const QColor outline = fill.darker(150);
        const QColor highlight = fill.lighter(150);
        const QColor textColor = textColorOn(fill);
        const int top = m_rowRect.top() + BarMargin;
        const int height = std::max(1, m_rowRect.height() - 2 * BarMargin);
        const bool anySelected = c.selection && !c.selection->isEmpty();

        // At wide zooms thousands of bars share a few pixels; bars that meet on screen are drawn
        // as one run so a repaint costs pixels, not segments.
        int runStart = 0;
        int runEnd = -1;
        bool runOpen = false;
        const Segment *runSingle = nullptr;
        auto flush = [&]() {
            if (!runOpen)
                return;
            const QRect r(runStart, top, std::max(MinBarPixels, runEnd - runStart), height);
            p.fillRect(r, fill);
            p.setPen(outline);
            p.drawRect(r.adjusted(0, 0, -1, -1));
            if (runSingle && r.width() > 30) {
                const QString text = !runSingle->description().isEmpty() ? runSingle->description() : runSingle->text();
                if (!text.isEmpty()) {
                    p.setFont(m_barFont);
                    p.setPen(textColor);
                    const QRect tr = r.adjusted(3, 0, -3, 0);
                    p.drawText(tr, Qt::AlignVCenter | Qt::AlignLeft, QFontMetrics(m_barFont).elidedText(text, Qt::ElideRight, tr.width()));
                }
            }
            runOpen = false;
        };
        QList<const Segment *> marked;

        const double from = m.timeAt(visible.left());
        const double to = m.timeAt(visible.right() + 1);
        // Times come from the label's index, so the segment objects are only touched for the
        // few bars wide enough to carry text.
        const QList<Label::Span> spans = m_label->spansInRange(from, to);
        for (const Label::Span &span : spans) {
            const double end = span.end == Segment::OpenEnd ? std::max(c.currentPos, span.start) : span.end;
            if (end < from)
                continue; // an open segment started after the playing position
            const int x1 = m.xAt(span.start);
            const int x2 = std::max(m.xAt(end), x1 + MinBarPixels);
            if ((anySelected && c.selection->contains(span.segment->id())) || (!c.highlighted.isEmpty() && span.segment->id() == c.highlighted)) {
                marked.append(span.segment);
                continue;
            }
            const bool narrow = x2 - x1 < 4;
            if (runOpen && (x1 < runEnd || (narrow && x1 <= runEnd))) {
                runEnd = std::max(runEnd, x2);
                runSingle = nullptr;
                continue;
            }
            flush();
            runStart = x1;
            runEnd = x2;
            runOpen = true;
            runSingle = span.segment;
        }
        flush();

        // Selected and highlighted bars on top, in the light colour with a strong outline.
        for (const Segment *s : marked) {
            const int x1 = m.xAt(s->start());
            const int x2 = std::max(m.xAt(shownEnd(s, c.currentPos)), x1 + MinBarPixels);
            const QRect r(x1, top, x2 - x1, height);
            p.fillRect(r, highlight);
            p.setPen(QPen(s->id() == c.highlighted ? QColor(Qt::blue) : QColor(Qt::black), 2));
            p.drawRect(r.adjusted(1, 1, -1, -1));
        }
    }
    p.restore();

    if (m_nameRect.intersects(c.clip)) {
        p.save();
        if (!m_editable || m_label->key().isNull())
            p.setOpacity(0.4);
        drawName(p);
        p.restore();
        if (flashing) {
            p.save();
            p.setPen(QPen(QColor(230, 120, 0), 2));
            p.drawRect(m_rowRect.adjusted(1, 1, -1, -1));
            p.restore();
        }
    }
}

void OVTimelineLabelPainter::drawName(QPainter &p) const
{
    p.fillRect(m_nameRect, QColor(220, 220, 220, 255));
    p.setPen(QColor(190, 190, 190));
    p.drawLine(m_nameRect.topRight(), m_nameRect.bottomRight());
    p.drawLine(m_nameRect.bottomLeft(), m_nameRect.bottomRight());

    const QRect swatch(m_nameRect.left() + 5, m_nameRect.center().y() - SwatchSize / 2, SwatchSize, SwatchSize);
    p.fillRect(swatch, m_label->color());
    p.setPen(Qt::darkGray);
    p.drawRect(swatch);

    p.setFont(m_nameFont);
    const QFontMetrics fm(m_nameFont);
    const int keyWidth = fm.horizontalAdvance(QStringLiteral("[W]")) + 6;
    const QRect keyRect(m_nameRect.right() - keyWidth, m_nameRect.top(), keyWidth, m_nameRect.height());
    p.setPen(Qt::darkGray);
    if (!m_label->key().isNull())
        p.drawText(keyRect, Qt::AlignCenter, QStringLiteral("[%1]").arg(m_label->key().toUpper()));

    const QRect textRect(swatch.right() + 4, m_nameRect.top(), keyRect.left() - swatch.right() - 6, m_nameRect.height());
    p.setPen(Qt::black);
    // Rows of other coders' timelines say whose they are.
    const Timeline *t = m_label->timeline();
    const QString name = (!m_editable && t && !t->owner().isEmpty()) ? t->owner() + QStringLiteral(": ") + m_label->name() : m_label->name();
    p.drawText(textRect, Qt::AlignCenter, fm.elidedText(name, Qt::ElideRight, std::max(0, textRect.width())));
}

OVTimelineLabelPainter::NameArea OVTimelineLabelPainter::nameAreaAt(const QPoint &pos) const
{
    if (pos.x() < m_nameRect.left() + 5 + SwatchSize + 2)
        return NameColor;
    const int keyWidth = QFontMetrics(m_nameFont).horizontalAdvance(QStringLiteral("[W]")) + 6;
    if (pos.x() > m_nameRect.right() - keyWidth)
        return NameKey;
    return NameText;
}

Segment *OVTimelineLabelPainter::segmentAt(int x, const OVTimeMapping &m, double currentPos) const
{
    if (!m_label || x < m.left)
        return nullptr;
    // Bars are at least MinBarPixels wide: look that far left of x.
    const QList<Segment *> hits = m_label->segmentsInRange(m.timeAt(x - MinBarPixels), m.timeAt(x + 1));
    for (auto it = hits.crbegin(); it != hits.crend(); ++it) {
        const QRect r = barRect(m, (*it)->start(), (*it)->end(), currentPos);
        if (x >= r.left() && x <= r.right())
            return *it;
    }
    return nullptr;
}

OVTimelineLabelPainter::Edge OVTimelineLabelPainter::edgeAt(const Segment *segment, int x, const OVTimeMapping &m, double currentPos) const
{
    if (!segment)
        return NoEdge;
    const QRect r = barRect(m, segment->start(), segment->end(), currentPos);
    if (r.width() < 3 * EdgeGrabPixels)
        return NoEdge; // too thin to tell its ends from its body
    if (!segment->isOpen() && std::abs(x - r.right()) < EdgeGrabPixels)
        return EndEdge;
    if (std::abs(x - r.left()) < EdgeGrabPixels)
        return StartEdge;
    return NoEdge;
}

QList<Segment *> OVTimelineLabelPainter::segmentsIn(const QRect &r, const OVTimeMapping &m, double currentPos) const
{
    QList<Segment *> result;
    if (!m_label || !r.intersects(m_rowRect.adjusted(0, BarMargin, 0, -BarMargin)))
        return result;
    const QList<Segment *> candidates = m_label->segmentsInRange(m.timeAt(r.left() - MinBarPixels), m.timeAt(r.right() + 1));
    for (Segment *s : candidates) {
        const QRect bar = barRect(m, s->start(), s->end(), currentPos);
        if (bar.intersects(r))
            result.append(s);
    }
    return result;
}

void OVTimelineLabelPainter::doubleClicked(const QPoint &pos, const QPoint &globalPos, const OVTimeMapping &m, double currentPos)
{
    if (m_nameRect.contains(pos)) {
        qCDebug(lcTimeline) << "Label Name Double Clicked:" << m_labelId << " Pos:" << pos;
        Q_EMIT labelNameDoubleClicked(m_labelId, globalPos, nameAreaAt(pos));
        return;
    }
    if (Segment *s = segmentAt(pos.x(), m, currentPos)) {
        qCDebug(lcTimeline) << "Segment Double Clicked:" << s->id() << " Pos:" << pos;
        Q_EMIT labelDoubleClicked(m_labelId, s, globalPos);
        return;
    }
    qCDebug(lcTimeline) << "Label Double Clicked:" << m_labelId << " Pos:" << pos;
    Q_EMIT labelDoubleClicked(m_labelId, nullptr, globalPos);
}

void OVTimelineLabelPainter::rightClicked(const QPoint &pos, const QPoint &globalPos, const OVTimeMapping &m, double currentPos)
{
    if (m_nameRect.contains(pos)) {
        Q_EMIT labelNameRightClicked(m_labelId, globalPos);
        return;
    }
    Q_EMIT labelRightClicked(m_labelId, segmentAt(pos.x(), m, currentPos), globalPos);
}

void OVTimelineLabelPainter::toggleSelection(Segment *segment)
{
    if (segment)
        Q_EMIT selectionToggled(segment->id());
}

void OVTimelineLabelPainter::beginSortDrag() { Q_EMIT dragSortStarted(); }
void OVTimelineLabelPainter::moveSortDrag() { Q_EMIT dragSortMoved(); }
void OVTimelineLabelPainter::finishSortDrag() { Q_EMIT dragSortFinished(); }

static QString authorOf(const Segment *s)
{
    const Label *l = s->label();
    const Timeline *t = l ? l->timeline() : nullptr;
    return t ? t->owner() : QString();
}

QString OVTimelineLabelPainter::segmentToolTip(const Segment *s, double currentPos)
{
    if (!s)
        return QString();
    QString text = QObject::tr("Start") + QStringLiteral(": %1\n").arg(OVTimeFormat::format(s->start())) + QObject::tr("End")
        + QStringLiteral(": %2").arg(OVTimeFormat::format(shownEnd(s, currentPos)));
    const QString author = authorOf(s);
    if (!author.isEmpty())
        text += QStringLiteral("\n") + QObject::tr("Author") + QStringLiteral(": ") + author;
    if (!s->description().isEmpty())
        text += QStringLiteral("\n") + QObject::tr("Desc") + QStringLiteral(": ") + s->description();
    return text;
}

QString OVTimelineLabelPainter::segmentInfo(const Segment *s, double currentPos)
{
    if (!s)
        return QString();
    QStringList lines;
    lines << QObject::tr("Time") + QStringLiteral(": %1 - %2").arg(OVTimeFormat::format(s->start()), OVTimeFormat::format(shownEnd(s, currentPos)));
    const QString author = authorOf(s);
    if (!author.isEmpty())
        lines << QObject::tr("Author") + QStringLiteral(": ") + author;
    if (!s->description().isEmpty())
        lines << QObject::tr("Desc") + QStringLiteral(": ") + s->description();
    return lines.join(QLatin1Char('\n'));
}
