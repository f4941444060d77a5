#pragma once

#include "platform/DesktopWords.h"

#include <QWidget>

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

class AppSettings;
class CameraCapture;
class HeroCard;
class KeyGrabCheck;
class MicCapture;
class PremiumSettingsNavRow;
class QBoxLayout;
class QVBoxLayout;
class SetRow;

// The one screen that edits the settings: a column of groups on the left, the rows of the chosen
// group on the right. Every row writes straight into its setting, with no apply step; what a change
// sets off (a restart of the stream, the microphone opening) is the settings' and the controller's
// business. Each visit starts on the "Recording" group.
class SettingsView : public QWidget {
    Q_OBJECT
public:
    enum class SettingsGroup { recording, camera, output, privacy, monitor, about };
    static constexpr std::array<SettingsGroup, 6> allGroups { SettingsGroup::recording, SettingsGroup::camera,
        SettingsGroup::output, SettingsGroup::privacy, SettingsGroup::monitor, SettingsGroup::about };

    static constexpr int groupColumnWidth = 220;
    // Below this width the groups stand as a row of tiles above the page, and each row's control
    // goes under its label.
    static constexpr int compactBelow = 760;

    // Asks the user for a folder, starting at `current`; none when cancelled.
    using FolderChooser = std::function<std::optional<QString>(QWidget* parent, const QString& current)>;

    // `camera` may be null: no camera is listed. `keyGrabCheck` may be null: nobody can tell which
    // keys other programs hold. `words` speak of the desktop: where it takes no global keys the
    // hotkey rows give way to its note on binding the commands, and where no frame can stand around
    // the watched area the overlay rows say so and can't be changed.
    SettingsView(AppSettings* settings, MicCapture* mic, CameraCapture* camera,
        std::shared_ptr<KeyGrabCheck> keyGrabCheck, DesktopWords words = DesktopWords::x11(),
        QWidget* parent = nullptr);

    SettingsGroup group() const { return current; }
    void setGroup(SettingsGroup group);
    static QString title(SettingsGroup group);
    // The file name part of a group in pictures and tests: its case name.
    static QString rawValue(SettingsGroup group);

    // The rows of the group on show, in order, and one of them by its label.
    QList<SetRow*> rows() const;
    SetRow* row(const QString& label) const;
    PremiumSettingsNavRow* groupButton(SettingsGroup group) const;

    // The save folder row's action: the desktop's folder chooser, then useSaveFolder.
    void pickFolder();
    // Makes `folder` the save folder when clips can be written there; otherwise the row says why,
    // and the folder stays as it was.
    void useSaveFolder(const QString& folder);
    // The desktop's folder chooser by default (QFileDialog, native where the platform theme has one).
    void setFolderChooser(FolderChooser chooser) { chooseFolder = std::move(chooser); }

    // Narrow: the screen lays itself out for the width it is given (a scroll area asks for the
    // width of the hint when the content's height depends on its width).
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    QWidget* makePage(SettingsGroup group);
    void buildRecording(QVBoxLayout* page);
    void buildCameraAndMic(QVBoxLayout* page);
    void buildOutput(QVBoxLayout* page);
    void buildPrivacy(QVBoxLayout* page);
    void buildMonitor(QVBoxLayout* page);
    void buildAbout(QVBoxLayout* page);
    // A card holding `rows`, with a hairline between rows.
    HeroCard* rowCard(QWidget* page, const std::vector<SetRow*>& rows);
    void applyCompact();

    AppSettings* settings;
    MicCapture* mic;
    CameraCapture* cameraCapture; // null: no camera is ever listed
    std::shared_ptr<KeyGrabCheck> keyGrabCheck;
    DesktopWords words;
    SettingsGroup current = SettingsGroup::recording;
    std::vector<PremiumSettingsNavRow*> groupButtons;
    QBoxLayout* frame;
    QBoxLayout* groupList;
    QWidget* groupHolder;
    QVBoxLayout* pageColumn;
    bool compact = false;
    QWidget* page = nullptr;
    FolderChooser chooseFolder;
};
