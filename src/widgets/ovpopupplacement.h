#pragma once

class QWidget;

// Where a control's pop-up opens: below the control, or above it when it would leave the screen
// (the player's controls sit at the bottom of the window).
class OVPopupPlacement
{
public:
    static void showBesides(QWidget *anchor, QWidget *popup);
};
