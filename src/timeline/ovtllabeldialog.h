#pragma once

#include <QColor>
#include <QDialog>

class QButtonGroup;
class QLineEdit;
class QPlainTextEdit;

// Edits a label's name, key, colour (from the label palette) and description.
class OVTLLabelDialog : public QDialog
{
    Q_OBJECT
public:
    explicit OVTLLabelDialog(QWidget *parent = nullptr);

    void setValues(const QString &name, QChar key, const QColor &color, const QString &description);
    QString name() const;
    QChar key() const;
    QColor color() const { return m_color; }
    QString description() const;

private:
    void selectColor(const QColor &color);

    QLineEdit *m_name;
    QLineEdit *m_key;
    QPlainTextEdit *m_description;
    QButtonGroup *m_colors;
    QColor m_color;
};
