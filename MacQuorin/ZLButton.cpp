#include "ZLButton.h"

#include <QMouseEvent>

ZLButton::ZLButton(QWidget* parent) : QCheckBox(parent) { }

void ZLButton::mousePressEvent(QMouseEvent* event)
{
    // A swallowed press never makes the button "down", so its release neither
    // highlights, toggles nor sends the action.
    if (disableMouseDown) {
        event->accept();
        return;
    }
    QCheckBox::mousePressEvent(event);
}

void ZLButton::mouseDoubleClickEvent(QMouseEvent* event)
{
    if (disableMouseDown) {
        event->accept();
        return;
    }
    QCheckBox::mouseDoubleClickEvent(event);
}
