#include "app/ovsendreportdlg.h"

#include "app/nxcrashreporter.h"
#include "log/nxlog.h"

#include <QApplication>
#include <QClipboard>
#include <QDesktopServices>
#include <QDialogButtonBox>
#include <QFile>
#include <QFileInfo>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

OVSendReportDlg::OVSendReportDlg(const QStringList &files, QWidget *parent)
    : QDialog(parent), m_files(files), m_text(new QPlainTextEdit(this)), m_list(new QListWidget(this))
{
    setWindowTitle(tr("Report Problem"));
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(tr("Files of this report:"), this));
    m_list->setObjectName(QStringLiteral("lw_files"));
    m_list->setMaximumHeight(90);
    layout->addWidget(m_list);
    layout->addWidget(new QLabel(tr("Report content:"), this));
    m_text->setObjectName(QStringLiteral("pt_report"));
    m_text->setReadOnly(true);
    m_text->setLineWrapMode(QPlainTextEdit::NoWrap);
    layout->addWidget(m_text, 1);

    QString text;
    for (const QString &path : files) {
        m_list->addItem(path);
        text += QStringLiteral("==== %1\n").arg(QFileInfo(path).fileName());
        text += NXCrashReporter::readableReport(path);
        text += QLatin1Char('\n');
    }
    if (files.isEmpty()) {
        // A report made by the user: the log is the useful part.
        const QString log = NXLog::logFilePath();
        if (!log.isEmpty()) {
            m_files << log;
            m_list->addItem(log);
            QFile f(log);
            if (f.open(QIODevice::ReadOnly)) {
                if (f.size() > 65536)
                    f.seek(f.size() - 65536);
                text += QStringLiteral("Log content:\n") + QString::fromUtf8(f.readAll());
            }
        }
    }
    m_text->setPlainText(text);

    auto *buttons = new QDialogButtonBox(this);
    QPushButton *copy = buttons->addButton(tr("Copy Text"), QDialogButtonBox::ActionRole);
    QPushButton *folder = buttons->addButton(tr("Open Folder"), QDialogButtonBox::ActionRole);
    QPushButton *send = buttons->addButton(tr("Send"), QDialogButtonBox::ActionRole);
    buttons->addButton(QDialogButtonBox::Close);
    copy->setObjectName(QStringLiteral("pb_copy"));
    folder->setObjectName(QStringLiteral("pb_openFolder"));
    send->setObjectName(QStringLiteral("pb_send"));
    connect(copy, &QPushButton::clicked, this, &OVSendReportDlg::onCopyClicked);
    connect(folder, &QPushButton::clicked, this, &OVSendReportDlg::onOpenFolderClicked);
    connect(send, &QPushButton::clicked, this, &OVSendReportDlg::onSendClicked);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
    resize(800, 600);
}

QString OVSendReportDlg::reportText() const { return m_text->toPlainText(); }

void OVSendReportDlg::onCopyClicked()
{
    QApplication::clipboard()->setText(reportText());
}

void OVSendReportDlg::onOpenFolderClicked()
{
    if (m_files.isEmpty())
        return;
    QDesktopServices::openUrl(QUrl::fromLocalFile(QFileInfo(m_files.first()).absolutePath()));
}

void OVSendReportDlg::onSendClicked()
{
    QMessageBox::information(this, tr("Report Problem"),
                             tr("Kavot has no support server to send reports to yet, so nothing was sent.\n"
                                "Use \"Copy Text\" or \"Open Folder\" to pass the report on yourself."));
}
