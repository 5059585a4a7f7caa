#pragma once

#include <QDialog>
#include <QStringList>

class QPlainTextEdit;
class QListWidget;

// Shows a problem report (a crash report and the log's tail), lists the files that belong to it and
// lets the user copy the text or open its folder. There is no support server to send it to yet, and
// the dialog says so rather than pretending to send.
class OVSendReportDlg : public QDialog
{
    Q_OBJECT
public:
    explicit OVSendReportDlg(const QStringList &files, QWidget *parent = nullptr);

    QString reportText() const;
    QStringList files() const { return m_files; }

private Q_SLOTS:
    void onCopyClicked();
    void onOpenFolderClicked();
    void onSendClicked();

private:
    QStringList m_files;
    QPlainTextEdit *m_text;
    QListWidget *m_list;
};
