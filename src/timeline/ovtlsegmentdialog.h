#pragma once

#include <QDialog>

class QCheckBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;

// Edits a segment's start, end (or keeps it open) and description. Times are typed in the
// application's time format.
class OVTLSegmentDialog : public QDialog
{
    Q_OBJECT
public:
    explicit OVTLSegmentDialog(QWidget *parent = nullptr);

    // `end` may be the open end; the dialog then offers to keep the segment open.
    void setValues(double start, double end, const QString &author, const QString &description);
    double start() const;
    double end() const;
    QString description() const;
    // False while a time does not read or the end lies before the start.
    bool isValid() const;

private:
    void validate();

    QLineEdit *m_start;
    QLineEdit *m_end;
    QCheckBox *m_open;
    QLabel *m_author;
    QPlainTextEdit *m_description;
    QLabel *m_error;
    QPushButton *m_ok;
};
