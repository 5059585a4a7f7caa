#include "app/ovanalysisdlg.h"

#include "analysis/ovanalysistables.h"
#include "app/ovanalysischarts.h"
#include "app/ovanalysisexports.h"
#include "project/ovtablewriter.h"
#include "widgets/ovprogressrunner.h"

#include <QCheckBox>
#include <QChart>
#include <QChartView>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QSortFilterProxyModel>
#include <QStandardItemModel>
#include <QTabWidget>
#include <QTableView>
#include <QVBoxLayout>

#include <cmath>

namespace {

QTableView *tableView(QStandardItemModel *model, QWidget *parent)
{
    auto *proxy = new QSortFilterProxyModel(parent);
    proxy->setSourceModel(model);
    proxy->setSortRole(Qt::UserRole);
    auto *view = new QTableView(parent);
    view->setModel(proxy);
    view->setSortingEnabled(true);
    view->setEditTriggers(QAbstractItemView::NoEditTriggers);
    view->horizontalHeader()->setStretchLastSection(true);
    view->verticalHeader()->hide();
    return view;
}

QDoubleSpinBox *secondsBox(double max, double value, QWidget *parent)
{
    auto *box = new QDoubleSpinBox(parent);
    box->setRange(0.0, max);
    box->setDecimals(3);
    box->setSuffix(QStringLiteral(" s"));
    box->setValue(value);
    return box;
}

QString figure(double value, int decimals)
{
    return std::isfinite(value) ? QString::number(value, 'f', decimals) : QObject::tr("undefined");
}

} // namespace

OVAnalysisDlg::OVAnalysisDlg(const OVCodingSnapshot &snapshot, QWidget *parent)
    : QDialog(parent)
    , m_snapshot(snapshot)
{
    setWindowTitle(tr("Statistics and Agreement"));
    resize(960, 640);
    const double end = m_snapshot.observedEnd();
    m_tabs = new QTabWidget(this);

    auto *statsPage = new QWidget;
    m_from = secondsBox(std::max(end, 1.0), 0.0, statsPage);
    m_to = secondsBox(std::max(end, 1.0), end, statsPage);
    m_perGroup = new QCheckBox(tr("Per segment group"), statsPage);
    m_statsModel = new QStandardItemModel(this);
    auto *statsBar = new QHBoxLayout;
    statsBar->addWidget(new QLabel(tr("From:")));
    statsBar->addWidget(m_from);
    statsBar->addWidget(new QLabel(tr("To:")));
    statsBar->addWidget(m_to);
    statsBar->addWidget(m_perGroup);
    statsBar->addStretch();
    auto *statsLayout = new QVBoxLayout(statsPage);
    statsLayout->addLayout(statsBar);
    statsLayout->addWidget(tableView(m_statsModel, statsPage));
    m_tabs->addTab(statsPage, tr("Statistics"));

    auto *agreePage = new QWidget;
    m_coderA = new QComboBox(agreePage);
    m_coderB = new QComboBox(agreePage);
    m_coderA->setObjectName(QStringLiteral("cb_coderA"));
    m_coderB->setObjectName(QStringLiteral("cb_coderB"));
    for (const auto &c : m_snapshot.coders) {
        m_coderA->addItem(c.name);
        m_coderB->addItem(c.name);
    }
    m_coderB->setCurrentIndex(m_snapshot.coders.size() > 1 ? 1 : 0);
    m_resolution = secondsBox(60.0, m_options.resolution, agreePage);
    m_resolution->setMinimum(0.001);
    m_tolerance = secondsBox(60.0, m_options.tolerance, agreePage);
    m_overall = new QLabel(agreePage);
    m_agreementModel = new QStandardItemModel(this);
    m_confusionModel = new QStandardItemModel(this);
    auto *agreeForm = new QHBoxLayout;
    agreeForm->addWidget(new QLabel(tr("Coders:")));
    agreeForm->addWidget(m_coderA);
    agreeForm->addWidget(m_coderB);
    agreeForm->addWidget(new QLabel(tr("Resolution:")));
    agreeForm->addWidget(m_resolution);
    agreeForm->addWidget(new QLabel(tr("Tolerance:")));
    agreeForm->addWidget(m_tolerance);
    agreeForm->addStretch();
    auto *agreeLayout = new QVBoxLayout(agreePage);
    agreeLayout->addLayout(agreeForm);
    agreeLayout->addWidget(m_overall);
    agreeLayout->addWidget(tableView(m_agreementModel, agreePage), 2);
    agreeLayout->addWidget(new QLabel(tr("Confusion matrix (slices):")));
    agreeLayout->addWidget(tableView(m_confusionModel, agreePage), 1);
    m_tabs->addTab(agreePage, tr("Agreement"));

    auto *plotPage = new QWidget;
    m_plot = new QComboBox(plotPage);
    m_plot->addItems({tr("Time budget per coder"), tr("Events of all coders"), tr("Agreement per label")});
    m_chartView = new QChartView(plotPage);
    m_chartView->setRenderHint(QPainter::Antialiasing);
    auto *plotSave = new QPushButton(tr("Export Plot..."), plotPage);
    auto *plotBar = new QHBoxLayout;
    plotBar->addWidget(m_plot);
    plotBar->addStretch();
    plotBar->addWidget(plotSave);
    auto *plotLayout = new QVBoxLayout(plotPage);
    plotLayout->addLayout(plotBar);
    plotLayout->addWidget(m_chartView);
    m_tabs->addTab(plotPage, tr("Plots"));

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    QPushButton *exportTables = buttons->addButton(tr("Export Tables..."), QDialogButtonBox::ActionRole);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(exportTables, &QPushButton::clicked, this, &OVAnalysisDlg::onExportTablesClicked);
    connect(plotSave, &QPushButton::clicked, this, &OVAnalysisDlg::onExportPlotClicked);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_tabs);
    layout->addWidget(buttons);

    for (QDoubleSpinBox *box : {m_from, m_to, m_resolution, m_tolerance})
        connect(box, &QDoubleSpinBox::editingFinished, this, &OVAnalysisDlg::onRecompute);
    connect(m_perGroup, &QCheckBox::toggled, this, &OVAnalysisDlg::onRecompute);
    connect(m_coderA, &QComboBox::currentIndexChanged, this, &OVAnalysisDlg::onRecompute);
    connect(m_coderB, &QComboBox::currentIndexChanged, this, &OVAnalysisDlg::onRecompute);
    connect(m_plot, &QComboBox::currentIndexChanged, this, &OVAnalysisDlg::onPlotChanged);
    onRecompute();
}

void OVAnalysisDlg::fill(QStandardItemModel *model, const OVTable &table)
{
    model->clear();
    QStringList headers;
    for (const OVTable::Column &c : table.columns)
        headers << c.title;
    model->setHorizontalHeaderLabels(headers);
    QVariantList cells;
    for (qint64 r = 0; r < table.rowCount; ++r) {
        table.row(r, cells);
        QList<QStandardItem *> items;
        for (int c = 0; c < table.columns.size(); ++c) {
            const QVariant value = cells.value(c);
            auto *item = new QStandardItem(OVTableWriter::cellText(value, table.columns.at(c).kind));
            // Sort numbers as numbers; an undefined figure sorts before every defined one.
            const bool numeric = table.columns.at(c).kind != OVTable::Text;
            item->setData(numeric ? QVariant(value.isNull() ? -1e300 : value.toDouble()) : value, Qt::UserRole);
            if (numeric)
                item->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
            items << item;
        }
        model->appendRow(items);
    }
}

void OVAnalysisDlg::onRecompute()
{
    OVStatistics::Window window {m_from->value(), m_to->value()};
    if (window.to <= window.from)
        window.to = -1.0;
    m_stats = OVStatistics::compute(m_snapshot, window, m_perGroup->isChecked());
    fill(m_statsModel, OVAnalysisTables::statistics(m_stats));

    m_options.from = window.from;
    m_options.to = window.to;
    m_options.resolution = m_resolution->value();
    m_options.tolerance = m_tolerance->value();
    const OVCodingSnapshot::Coder *a = m_snapshot.coder(m_coderA->currentText());
    const OVCodingSnapshot::Coder *b = m_snapshot.coder(m_coderB->currentText());
    if (a && b) {
        m_agreement = OVAgreement::compute(m_snapshot, *a, *b, m_options);
        m_overall->setText(tr("Over all labels: kappa %1, agreement %2 %, onsets matched %3, missed %4, extra %5")
                               .arg(figure(m_agreement.kappa, 3), figure(m_agreement.percent, 1))
                               .arg(m_agreement.matched)
                               .arg(m_agreement.missed)
                               .arg(m_agreement.extra));
    } else {
        m_agreement = OVAgreement::Result();
        m_overall->setText(tr("Agreement needs two coders' timelines."));
    }
    fill(m_agreementModel, OVAnalysisTables::agreement(m_agreement));
    fill(m_confusionModel, OVAnalysisTables::confusion(m_agreement));
    onPlotChanged();
}

void OVAnalysisDlg::onPlotChanged()
{
    QChart *chart = nullptr;
    switch (m_plot->currentIndex()) {
    case 0:
        chart = OVAnalysisCharts::timeBudget(m_stats, m_snapshot);
        break;
    case 1: {
        QStringList coders;
        for (const auto &c : m_snapshot.coders)
            coders << c.name;
        chart = OVAnalysisCharts::eventPlot(m_snapshot, coders);
        break;
    }
    default:
        chart = OVAnalysisCharts::agreement(m_agreement, m_snapshot);
        break;
    }
    QChart *old = m_chartView->chart();
    m_chartView->setChart(chart);
    delete old;
}

QList<OVTable> OVAnalysisDlg::tables() const
{
    return {OVAnalysisTables::statistics(m_stats), OVAnalysisTables::agreement(m_agreement),
        OVAnalysisTables::confusion(m_agreement)};
}

bool OVAnalysisDlg::exportTables(const QString &path)
{
    const QList<OVTable> all = tables();
    const bool csv = path.endsWith(QLatin1String(".csv"), Qt::CaseInsensitive);
    const int tab = qBound(0, m_tabs->currentIndex(), 1);
    const OV::Error error = OVProgressRunner::run(this, tr("Exporting tables..."), [&](const auto &report) {
        return csv ? OVTableWriter::writeCsv(all.at(tab), path, report) : OVTableWriter::writeXlsx(all, path, report);
    });
    if (!error.isOk() && error.code() != 2)
        showError(error.message());
    return error.isOk();
}

bool OVAnalysisDlg::exportPlot(const QString &path)
{
    const OV::Error error = OVAnalysisCharts::save(m_chartView, path);
    if (!error.isOk())
        showError(error.message());
    return error.isOk();
}

void OVAnalysisDlg::onExportTablesClicked()
{
    const QString path = chooseSavePath(tr("Export Tables"),
        tr("Excel Workbook (*.xlsx);;CSV of the current table (*.csv)"));
    if (!path.isEmpty())
        exportTables(path);
}

void OVAnalysisDlg::onExportPlotClicked()
{
    const QString path = chooseSavePath(tr("Export Plot"), tr("PNG Image (*.png);;SVG Drawing (*.svg)"));
    if (!path.isEmpty())
        exportPlot(path);
}

QString OVAnalysisDlg::chooseSavePath(const QString &caption, const QString &filter)
{
    return OVAnalysisExports::chooseSavePath(this, caption, filter);
}

void OVAnalysisDlg::showError(const QString &message)
{
    QMessageBox::warning(this, windowTitle(), message);
}
