#include "app/hotkeys/HotkeyRecorder.h"

#include "app/AppSettings.h"
#include "app/hotkeys/HotkeyMatcher.h"
#include "app/hotkeys/KeyTable.h"
#include "platform/KeyGrabCheck.h"

#include <QCoreApplication>
#include <QKeyEvent>
#include <QKeySequence>

namespace {

bool isModifierKey(int key)
{
    switch (key) {
    case Qt::Key_Shift:
    case Qt::Key_Control:
    case Qt::Key_Meta:
    case Qt::Key_Alt:
    case Qt::Key_AltGr:
    case Qt::Key_Super_L:
    case Qt::Key_Super_R:
    case Qt::Key_Hyper_L:
    case Qt::Key_Hyper_R:
    case Qt::Key_CapsLock:
    case Qt::Key_NumLock:
        return true;
    default:
        return false;
    }
}

// The character of the key itself, whatever Ctrl or Alt did to the event's text: Qt names a
// printable key by its upper-case code point. Space and keys without a character give none.
QString characterIgnoringModifiers(const QKeyEvent& event)
{
    const int key = event.key();
    if (key <= 0x20 || key >= 0x01000000) return {};
    const auto codePoint = static_cast<char32_t>(key);
    if (QChar::isSpace(codePoint) || QChar::category(codePoint) == QChar::Other_Control) return {};
    return QString::fromUcs4(&codePoint, 1).toLower();
}

} // namespace

HotkeyRecorder::HotkeyRecorder(Read read, Write write, QObject* parent)
    : QObject(parent)
    , read(std::move(read))
    , write(std::move(write))
{
}

HotkeyRecorder::~HotkeyRecorder()
{
    cancel();
}

HotkeyRecorder* HotkeyRecorder::forSaveHotkey(AppSettings* settings, QObject* parent)
{
    auto* recorder = new HotkeyRecorder([settings] { return settings->saveHotkey(); },
        [settings](const HotkeyBinding& b) { settings->setSaveHotkey(b); }, parent);
    connect(settings, &AppSettings::saveHotkeyChanged, recorder, &HotkeyRecorder::bindingChanged);
    return recorder;
}

HotkeyRecorder* HotkeyRecorder::forArmHotkey(AppSettings* settings, QObject* parent)
{
    auto* recorder = new HotkeyRecorder([settings] { return settings->armHotkey(); },
        [settings](const HotkeyBinding& b) { settings->setArmHotkey(b); }, parent);
    connect(settings, &AppSettings::armHotkeyChanged, recorder, &HotkeyRecorder::bindingChanged);
    return recorder;
}

QString HotkeyRecorder::label() const
{
    if (isListening) return QStringLiteral("Press any key…");
    return bindingText(read());
}

bool HotkeyRecorder::showsClearButton() const
{
    const HotkeyBinding binding = read();
    return !isListening && binding.enabled && !binding.keyChar.isEmpty();
}

HotkeyRecorder::LabelTone HotkeyRecorder::labelTone() const
{
    if (isListening) return LabelTone::accent;
    const HotkeyBinding binding = read();
    return binding.enabled && !binding.keyChar.isEmpty() ? LabelTone::primary : LabelTone::faint;
}

QString HotkeyRecorder::bindingText(const HotkeyBinding& binding)
{
    if (!binding.enabled || binding.keyChar.isEmpty()) return QStringLiteral("Off");
    const Qt::KeyboardModifiers modifiers = HotkeyMatcher::qtModifiers(binding.modifierRaw);
    if (const auto key = KeyTable::qtKeyForKeyChar(binding.keyChar))
        return QKeySequence(QKeyCombination(modifiers, *key)).toString(QKeySequence::NativeText);
    // A text Qt has no key for (the hexadecimal form): the platform's modifier text, then the
    // text itself in upper case.
    QString prefix = QKeySequence(QKeyCombination(modifiers, Qt::Key_A)).toString(QKeySequence::NativeText);
    prefix.chop(1);
    return prefix + binding.keyChar.toUpper();
}

void HotkeyRecorder::setGrabCheck(std::shared_ptr<KeyGrabCheck> check)
{
    grabCheck = std::move(check);
    checkForConflict();
    emit changed();
}

void HotkeyRecorder::checkForConflict()
{
    conflictText.clear();
    const HotkeyBinding binding = read();
    if (!grabCheck || !HotkeyMatcher::registers(binding)) return;
    if (grabCheck->isTakenByAnotherProgram(binding.keyCode, binding.modifierRaw & HotkeyBinding::modifierMask))
        conflictText = QStringLiteral("%1 is taken by another program").arg(bindingText(binding));
}

void HotkeyRecorder::press()
{
    if (isListening) {
        cancel();
        return;
    }
    isListening = true;
    QCoreApplication::instance()->installEventFilter(this);
    emit changed();
}

void HotkeyRecorder::cancel()
{
    if (!isListening) return;
    if (QCoreApplication* app = QCoreApplication::instance()) app->removeEventFilter(this);
    isListening = false;
    emit changed();
}

void HotkeyRecorder::clear()
{
    write(HotkeyBinding { false, 0, QString(), 0 });
    checkForConflict();
    emit changed();
}

void HotkeyRecorder::bindingChanged()
{
    checkForConflict();
    emit changed();
}

bool HotkeyRecorder::eventFilter(QObject* watched, QEvent* event)
{
    if (!isListening) return QObject::eventFilter(watched, event);
    if (event->type() == QEvent::ShortcutOverride) {
        // Claim the key so that no menu shortcut fires; its KeyPress then comes here.
        event->accept();
        return true;
    }
    if (event->type() != QEvent::KeyPress) return QObject::eventFilter(watched, event);

    const auto* key = static_cast<QKeyEvent*>(event);
    const auto keyCode = static_cast<uint16_t>(key->nativeScanCode());
    // Escape alone can therefore never be bound.
    if (keyCode == KeyTable::escapeKey) {
        cancel();
        return true;
    }
    // Holding modifiers alone doesn't finish the recording.
    if (isModifierKey(key->key())) return true;
    const uint64_t modifiers = HotkeyMatcher::modifierRawFromQt(key->modifiers()) & HotkeyBinding::modifierMask;
    // A combination needs at least one modifier.
    if (modifiers == 0) return true;
    QString character = characterIgnoringModifiers(*key);
    if (character.isEmpty()) character = KeyTable::keyCharFromCode(keyCode);
    write(HotkeyBinding { true, keyCode, character, modifiers });
    checkForConflict();
    cancel();
    return true;
}
