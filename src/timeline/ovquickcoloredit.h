#pragma once

#include <QColor>
#include <QFrame>

// A small popup grid of the label palette; a click picks the colour and closes it.
class OVQuickColorEdit : public QFrame
{
    Q_OBJECT
public:
    explicit OVQuickColorEdit(const QColor &current, QWidget *parent = nullptr);
    void popup(const QPoint &globalPos);

Q_SIGNALS:
    void colorChosen(QColor color);
};
