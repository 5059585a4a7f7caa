#include "app/ovanalysischarts.h"

#include <QBarCategoryAxis>
#include <QBarSeries>
#include <QBarSet>
#include <QCategoryAxis>
#include <QChart>
#include <QDir>
#include <QLegend>
#include <QLegendMarker>
#include <QPainter>
#include <QScatterSeries>
#include <QStackedBarSeries>
#include <QSvgGenerator>
#include <QValueAxis>
#include <QWidget>

#include <cmath>

namespace {

QChart *newChart(const QString &title)
{
    auto *chart = new QChart;
    chart->setTitle(title);
    chart->legend()->setAlignment(Qt::AlignBottom);
    // Coders in the event plot are told apart by the shape of their marks.
    chart->legend()->setMarkerShape(QLegend::MarkerShapeFromSeries);
    chart->setAnimationOptions(QChart::NoAnimation);
    return chart;
}

QColor usable(quint32 argb)
{
    const QColor color = QColor::fromRgba(argb);
    return color.alpha() > 0 ? color : QColor(Qt::gray);
}

// A white or pale label still needs an edge on the white plot.
void paint(QBarSet *set, const QColor &color)
{
    set->setColor(color);
    set->setBorderColor(color.darker(160));
}

} // namespace

QColor OVAnalysisCharts::labelColor(const OVCodingSnapshot &snapshot, const QString &name, QChar key)
{
    const OVCodingSnapshot::Label *found = nullptr;
    for (const auto &c : snapshot.coders)
        for (const auto &l : c.labels)
            if (!found && !key.isNull() && l.key == key.toUpper())
                found = &l;
    for (const auto &c : snapshot.coders)
        for (const auto &l : c.labels)
            if (!found && l.name == name)
                found = &l;
    return found ? usable(found->color) : QColor(Qt::gray);
}

QChart *OVAnalysisCharts::timeBudget(const QList<OVStatistics::Row> &rows, const OVCodingSnapshot &snapshot)
{
    QStringList coders;
    QStringList labels;
    QList<QChar> keys;
    for (const OVStatistics::Row &r : rows) {
        if (!r.group.isEmpty())
            continue;
        if (!coders.contains(r.coder))
            coders << r.coder;
        if (!labels.contains(r.label)) {
            labels << r.label;
            keys << r.key;
        }
    }
    auto *series = new QBarSeries;
    for (int li = 0; li < labels.size(); ++li) {
        const QString &label = labels.at(li);
        auto *set = new QBarSet(label);
        paint(set, labelColor(snapshot, label, keys.at(li)));
        for (const QString &coder : coders) {
            double share = 0.0;
            for (const OVStatistics::Row &r : rows)
                if (r.group.isEmpty() && r.coder == coder && r.label == label && std::isfinite(r.share))
                    share = r.share * 100.0;
            *set << share;
        }
        series->append(set);
    }
    QChart *chart = newChart(QObject::tr("Time budget per coder"));
    chart->addSeries(series);
    auto *x = new QBarCategoryAxis;
    x->append(coders);
    auto *y = new QValueAxis;
    y->setTitleText(QObject::tr("Share of observed time (%)"));
    y->setLabelFormat(QStringLiteral("%.0f"));
    y->setMin(0);
    chart->addAxis(x, Qt::AlignBottom);
    chart->addAxis(y, Qt::AlignLeft);
    series->attachAxis(x);
    series->attachAxis(y);
    // Ticks at round percentages rather than at fifths of the largest bar.
    y->applyNiceNumbers();
    return chart;
}

QChart *OVAnalysisCharts::eventPlot(const OVCodingSnapshot &snapshot, const QStringList &coders)
{
    // Rows by label name, in the order the labels first appear among the chosen coders.
    QStringList labels;
    for (const QString &name : coders)
        if (const OVCodingSnapshot::Coder *c = snapshot.coder(name))
            for (const auto &l : c->labels)
                if (!labels.contains(l.name))
                    labels << l.name;
    QChart *chart = newChart(QObject::tr("Events of all coders"));
    static const QScatterSeries::MarkerShape shapes[] = { QScatterSeries::MarkerShapeRectangle,
        QScatterSeries::MarkerShapeCircle, QScatterSeries::MarkerShapeTriangle, QScatterSeries::MarkerShapeRotatedRectangle,
        QScatterSeries::MarkerShapeStar, QScatterSeries::MarkerShapePentagon };
    const int n = int(coders.size());
    double end = 0.0;
    // The legend names the coders by their marks' shape; the label rows carry the colours.
    QList<QAbstractSeries *> unlisted;
    for (int ci = 0; ci < n; ++ci) {
        const OVCodingSnapshot::Coder *c = snapshot.coder(coders.at(ci));
        if (!c)
            continue;
        const QScatterSeries::MarkerShape shape = shapes[ci % std::size(shapes)];
        auto *legend = new QScatterSeries;
        legend->setName(c->name);
        legend->setMarkerShape(shape);
        legend->setColor(Qt::darkGray);
        chart->addSeries(legend);
        // Coders side by side inside a label's row: spread over the middle of the row.
        const double offset = n > 1 ? -0.3 + 0.6 * ci / (n - 1) : 0.0;
        for (const auto &l : c->labels) {
            const double row = labels.indexOf(l.name);
            QList<QPointF> points;
            points.reserve(l.segments.size());
            for (const auto &s : l.segments) {
                points.append(QPointF(s.start, row + offset));
                if (!s.isOpen())
                    end = std::max(end, s.end);
            }
            if (points.isEmpty())
                continue;
            auto *series = new QScatterSeries;
            series->setName(QStringLiteral("%1: %2").arg(c->name, l.name));
            series->setMarkerShape(shape);
            series->setMarkerSize(8.0);
            // Each coder's own colour: a plot must not show a coder a colour they never saw.
            const QColor color = usable(l.color);
            series->setColor(color);
            series->setBorderColor(color.darker(160));
            series->replace(points);
            chart->addSeries(series);
            unlisted << series;
        }
    }
    for (QAbstractSeries *s : std::as_const(unlisted))
        for (QLegendMarker *m : chart->legend()->markers(s))
            m->setVisible(false);
    auto *x = new QValueAxis;
    x->setTitleText(QObject::tr("Time (s)"));
    x->setRange(0.0, std::max({end, snapshot.videoLength, 1.0}));
    auto *y = new QCategoryAxis;
    y->setLabelsPosition(QCategoryAxis::AxisLabelsPositionOnValue);
    for (int i = 0; i < labels.size(); ++i)
        y->append(labels.at(i), i);
    y->setRange(-0.5, std::max<qsizetype>(labels.size(), 1) - 0.5);
    chart->addAxis(x, Qt::AlignBottom);
    chart->addAxis(y, Qt::AlignLeft);
    for (QAbstractSeries *s : chart->series()) {
        s->attachAxis(x);
        s->attachAxis(y);
    }
    return chart;
}

QChart *OVAnalysisCharts::agreement(const OVAgreement::Result &result, const OVCodingSnapshot &snapshot)
{
    // One set per label, holding only its own bar, so that each bar takes its label's colour;
    // stacked, the empty places take no room.
    auto *series = new QStackedBarSeries;
    QStringList categories;
    const int n = int(result.labels.size());
    for (int i = 0; i < n; ++i) {
        const OVAgreement::LabelResult &l = result.labels.at(i);
        const bool defined = std::isfinite(l.kappa);
        categories << (defined ? l.label : QObject::tr("%1 (undefined)").arg(l.label));
        auto *set = new QBarSet(l.label);
        for (int j = 0; j < n; ++j)
            *set << (j == i && defined ? l.kappa : 0.0);
        paint(set, labelColor(snapshot, l.label, l.key));
        series->append(set);
    }
    QChart *chart = newChart(QObject::tr("Agreement per label: %1 and %2").arg(result.coderA, result.coderB));
    chart->addSeries(series);
    chart->legend()->hide();
    auto *x = new QBarCategoryAxis;
    x->append(categories);
    auto *y = new QValueAxis;
    y->setRange(-1.0, 1.0);
    y->setTitleText(QObject::tr("Cohen's kappa"));
    chart->addAxis(x, Qt::AlignBottom);
    chart->addAxis(y, Qt::AlignLeft);
    series->attachAxis(x);
    series->attachAxis(y);
    return chart;
}

OV::Error OVAnalysisCharts::save(QWidget *view, const QString &path)
{
    bool ok = false;
    if (path.endsWith(QLatin1String(".svg"), Qt::CaseInsensitive)) {
        QSvgGenerator svg;
        svg.setFileName(path);
        svg.setSize(view->size());
        svg.setViewBox(QRect(QPoint(0, 0), view->size()));
        svg.setTitle(QObject::tr("Kavot plot"));
        QPainter painter;
        if (painter.begin(&svg)) {
            view->render(&painter);
            ok = painter.end();
        }
    } else {
        ok = view->grab().save(path, "PNG");
    }
    if (!ok)
        return OV::Error(1, QObject::tr("Failed to write %1:\nthe file cannot be written").arg(QDir::toNativeSeparators(path)));
    return OV::Error();
}
