#pragma once

#include <QWidget>

class QPlainTextEdit;

// The log view: registers itself as a receiver and appends every line posted to it.
class NXLogWidget : public QWidget
{
    Q_OBJECT
public:
    explicit NXLogWidget(QWidget *parent = nullptr);
    ~NXLogWidget() override;

protected:
    bool event(QEvent *event) override;

private:
    QPlainTextEdit *m_text;
};
