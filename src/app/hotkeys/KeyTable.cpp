#include "app/hotkeys/KeyTable.h"

#include <QList>

#include <array>

namespace KeyTable {

namespace {

struct Entry {
    uint16_t keyCode;
    char16_t glyph;
    Qt::Key qtKey;
};

constexpr std::array<Entry, 9> entries { {
    { returnKey, u'↩', Qt::Key_Return },
    { tabKey, u'⇥', Qt::Key_Tab },
    { spaceKey, u'␣', Qt::Key_Space },
    { backspaceKey, u'⌫', Qt::Key_Backspace },
    { escapeKey, u'⎋', Qt::Key_Escape },
    { leftKey, u'←', Qt::Key_Left },
    { rightKey, u'→', Qt::Key_Right },
    { downKey, u'↓', Qt::Key_Down },
    { upKey, u'↑', Qt::Key_Up },
} };

} // namespace

QString keyCharFromCode(uint16_t keyCode)
{
    for (const Entry& e : entries)
        if (e.keyCode == keyCode) return QString(QChar(e.glyph));
    return QString::asprintf("0x%02X", static_cast<unsigned>(keyCode));
}

std::optional<Qt::Key> qtKeyForKeyChar(const QString& keyChar)
{
    const QList<uint> codePoints = keyChar.toUcs4();
    if (codePoints.size() != 1) return std::nullopt;
    for (const Entry& e : entries)
        if (codePoints.front() == e.glyph) return e.qtKey;
    // Qt names a printable key by the code point of its upper-case character.
    const char32_t upper = QChar::toUpper(static_cast<char32_t>(codePoints.front()));
    if (upper <= 0x20 || upper >= 0x01000000 || QChar::isSpace(upper) || QChar::category(upper) == QChar::Other_Control)
        return std::nullopt;
    return static_cast<Qt::Key>(upper);
}

} // namespace KeyTable
