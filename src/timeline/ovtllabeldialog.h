#pragma once

#include <QColor>
#include <QDialog>

#include <functional>

class QButtonGroup;
class QLabel;
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

    // Says why a key cannot be taken (another label has it), empty when it can. The dialog stays
    // open, showing the reason, until the key is free.
    using KeyCheck = std::function<QString(QChar key)>;
    void setKeyCheck(KeyCheck check) { m_keyCheck = std::move(check); }
    QString keyProblem() const;

    void accept() override;

private:
    void selectColor(const QColor &color);

    QLineEdit *m_name;
    QLineEdit *m_key;
    QPlainTextEdit *m_description;
    QButtonGroup *m_colors;
    QLabel *m_problem;
    QColor m_color;
    KeyCheck m_keyCheck;
};
