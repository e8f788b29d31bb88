#pragma once

#include <QCheckBox>

// A checkbox that can be told to ignore mouse presses. Keyboard activation,
// programmatic clicks and state changes still go through.
class ZLButton : public QCheckBox {
    Q_OBJECT
public:
    explicit ZLButton(QWidget* parent = nullptr);

    bool disableMouseDown = false;

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
};
