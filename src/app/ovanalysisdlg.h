#pragma once

#include "analysis/ovagreement.h"
#include "analysis/ovcodingsnapshot.h"
#include "analysis/ovstatistics.h"
#include "project/ovtable.h"

#include <QDialog>

class QCheckBox;
class QChartView;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QStandardItemModel;
class QTabWidget;
class QTableView;

// Statistics and agreement of the open project, their plots, and their export. Works on a
// snapshot of the coding taken when it opens, so that coding on meanwhile changes nothing here.
class OVAnalysisDlg : public QDialog
{
    Q_OBJECT
public:
    explicit OVAnalysisDlg(const OVCodingSnapshot &snapshot, QWidget *parent = nullptr);

    const QList<OVStatistics::Row> &statistics() const { return m_stats; }
    const OVAgreement::Result &agreement() const { return m_agreement; }
    QStandardItemModel *statisticsModel() const { return m_statsModel; }
    QStandardItemModel *agreementModel() const { return m_agreementModel; }

    // Every table of the dialog (statistics, agreement, confusion) into one workbook, or the
    // current tab's table as CSV; with progress and cancel when large.
    bool exportTables(const QString &path);
    bool exportPlot(const QString &path);

public Q_SLOTS:
    void onRecompute();
    void onExportTablesClicked();
    void onExportPlotClicked();
    void onPlotChanged();

protected:
    // Replaceable so that tests need no file dialog.
    virtual QString chooseSavePath(const QString &caption, const QString &filter);
    virtual void showError(const QString &message);

private:
    static void fill(QStandardItemModel *model, const OVTable &table);
    QList<OVTable> tables() const;

    OVCodingSnapshot m_snapshot;
    QList<OVStatistics::Row> m_stats;
    OVAgreement::Result m_agreement;
    OVAgreement::Options m_options;
    QTabWidget *m_tabs;
    QDoubleSpinBox *m_from;
    QDoubleSpinBox *m_to;
    QCheckBox *m_perGroup;
    QComboBox *m_coderA;
    QComboBox *m_coderB;
    QDoubleSpinBox *m_resolution;
    QDoubleSpinBox *m_tolerance;
    QLabel *m_overall;
    QStandardItemModel *m_statsModel;
    QStandardItemModel *m_agreementModel;
    QStandardItemModel *m_confusionModel;
    QComboBox *m_plot;
    QChartView *m_chartView;
};
