#pragma once

#include <QWidget>

#include <memory>

// Owns one window made from a storyboard scene and shows it.
class ViewController;

class WindowController {
public:
    explicit WindowController(std::unique_ptr<QWidget> window,
                              std::unique_ptr<ViewController> content = nullptr);
    ~WindowController();

    QWidget* window() const { return m_window.get(); }
    ViewController* contentViewController() const { return m_content.get(); }
    void showWindow();

private:
    std::unique_ptr<QWidget> m_window;
    std::unique_ptr<ViewController> m_content; // destroyed before its view
};
