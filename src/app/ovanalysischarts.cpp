#include "app/ovanalysischarts.h"

#include <QBarCategoryAxis>
#include <QBarSeries>
#include <QBarSet>
#include <QCategoryAxis>
#include <QChart>
#include <QDir>
#include <QPainter>
#include <QScatterSeries>
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
    chart->setAnimationOptions(QChart::NoAnimation);
    return chart;
}

} // namespace

QChart *OVAnalysisCharts::timeBudget(const QList<OVStatistics::Row> &rows)
{
    QStringList coders;
    QStringList labels;
    for (const OVStatistics::Row &r : rows) {
        if (!r.group.isEmpty())
            continue;
        if (!coders.contains(r.coder))
            coders << r.coder;
        if (!labels.contains(r.label))
            labels << r.label;
    }
    auto *series = new QBarSeries;
    for (const QString &label : labels) {
        auto *set = new QBarSet(label);
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
    const int n = int(coders.size());
    double end = 0.0;
    for (int ci = 0; ci < n; ++ci) {
        const OVCodingSnapshot::Coder *c = snapshot.coder(coders.at(ci));
        if (!c)
            continue;
        auto *series = new QScatterSeries;
        series->setName(c->name);
        series->setMarkerShape(QScatterSeries::MarkerShapeRectangle);
        series->setMarkerSize(6.0);
        series->setBorderColor(Qt::transparent);
        // Coders side by side inside a label's row: spread over the middle of the row.
        const double offset = n > 1 ? -0.3 + 0.6 * ci / (n - 1) : 0.0;
        QList<QPointF> points;
        for (const auto &l : c->labels) {
            const double row = labels.indexOf(l.name);
            for (const auto &s : l.segments) {
                points.append(QPointF(s.start, row + offset));
                if (!s.isOpen())
                    end = std::max(end, s.end);
            }
        }
        series->replace(points);
        chart->addSeries(series);
    }
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

QChart *OVAnalysisCharts::agreement(const OVAgreement::Result &result)
{
    auto *set = new QBarSet(QObject::tr("Cohen's kappa"));
    QStringList categories;
    for (const OVAgreement::LabelResult &l : result.labels) {
        const bool defined = std::isfinite(l.kappa);
        *set << (defined ? l.kappa : 0.0);
        categories << (defined ? l.label : QObject::tr("%1 (undefined)").arg(l.label));
    }
    auto *series = new QBarSeries;
    series->append(set);
    QChart *chart = newChart(QObject::tr("Agreement per label: %1 and %2").arg(result.coderA, result.coderB));
    chart->addSeries(series);
    auto *x = new QBarCategoryAxis;
    x->append(categories);
    auto *y = new QValueAxis;
    y->setRange(-1.0, 1.0);
    y->setTitleText(QObject::tr("Kappa"));
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
