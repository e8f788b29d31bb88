#pragma once

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QObject>
#include <QPointer>
#include <QProgressBar>
#include <QVariant>

#include <memory>

class QAbstractButton;
class ZLButton;
class ZLFileManager;

// The settings window's controller: the version, the instructions for the
// running system, Enable with its auto-start mirror, the preview switch for the
// file-manager extension, and the online help.
class ViewController : public QObject {
    Q_OBJECT
public:
    // Texts for tr(): in the C and English locales they are shown exactly as written.
    static constexpr const char* modernInstructions = QT_TR_NOOP(
        "Make sure ZELNA Quorin is allowed under: System Settings > Privacy & Security > Extensions > Added "
        "extensions > ZELNA Quorin Service.");
    // A no-break space and a space stand before "Finder", as they always have.
    static constexpr const char* earlierInstructions
        = QT_TR_NOOP("Make sure ZELNA Quorin is allowed under: System Preferences > Extensions >\u00A0 "
                     "Finder Extensions > MacQuorinFinder.");
    static constexpr const char* versionPrefix = QT_TR_NOOP("Version: ");

    ViewController();                       // made in code
    explicit ViewController(QWidget* view); // made by the storyboard for its scene
    ~ViewController() override;

    QWidget* view() const { return m_view; }

    // Outlets, weak: the storyboard's widgets belong to the window.
    QPointer<QLabel> versionTxt;
    QPointer<QComboBox> channelsPopupBtn;
    QPointer<ZLButton> enableCheckBox;
    QPointer<QCheckBox> autoStartCheckBox;
    QPointer<QCheckBox> disablePreviewCheckbox;
    QPointer<QProgressBar> disablePreviewIndicator;
    QPointer<QLabel> makeSureTextFieldCell;

    const std::unique_ptr<ZLFileManager> zlFileManager;

    void viewDidLoad();

    QVariant representedObject() const { return m_representedObject; }
    void setRepresentedObject(const QVariant& object) { m_representedObject = object; }

public Q_SLOTS:
    void openLink(QObject* sender);
    void toggle(QObject* sender);
    void disablePreviewAction(QObject* sender);

private:
    void connectOutletsAndActions();
    void startToggleTimer(ZLButton* checkBox);

    QWidget* m_view = nullptr;
    QVariant m_representedObject;
};
