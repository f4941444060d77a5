#pragma once

#include "platform/DesktopWords.h"

#include <memory>

class AppSettings;
class AreaCommands;
class AreaMonitor;
class CameraCapture;
class CaptureEngine;
class ClipJournalStore;
class DesktopIntegration;
class KeyGrabCheck;
class MicCapture;
class SegmentedRecorder;
class SessionActions;
class SessionStatus;
class SourceMemory;

// The models of one session, as the window hands them to its screens: each screen takes the ones it
// shows, and asks for anything else through `actions`. All belong to the session controller and live
// as long as it does.
struct SessionModels {
    AppSettings* settings = nullptr;
    SessionStatus* status = nullptr; // the toast, the clip saved last
    SessionActions* actions = nullptr;
    CaptureEngine* engine = nullptr; // the sources, the selected one, its stream and preview
    SegmentedRecorder* recorder = nullptr; // the ring and the recording
    AreaMonitor* monitor = nullptr;
    AreaCommands* areas = nullptr; // arming, the watched area, a drawn region as the source
    SourceMemory* sources = nullptr; // the screens' layout, the source's size and name
    MicCapture* mic = nullptr;
    CameraCapture* camera = nullptr; // its devices, whether it runs, its newest picture
    ClipJournalStore* journal = nullptr;
    DesktopIntegration* desktop = nullptr; // null without a desktop
    std::shared_ptr<KeyGrabCheck> keyGrabCheck; // null where nobody can tell which keys are held
    DesktopWords desktopWords = DesktopWords::x11(); // what the settings screen says of the desktop
};
