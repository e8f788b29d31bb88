#pragma once

#include <QWidget>

#include <memory>

// Owns one window made from a storyboard scene and shows it.
class WindowController {
public:
    explicit WindowController(std::unique_ptr<QWidget> window);
    ~WindowController();

    QWidget* window() const { return m_window.get(); }
    void showWindow();

private:
    std::unique_ptr<QWidget> m_window;
};
