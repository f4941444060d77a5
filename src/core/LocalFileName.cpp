#include "core/LocalFileName.h"

namespace LocalFileName {

namespace {

constexpr char16_t escapeBase = 0xDC00;

bool isEscapedByte(char16_t c)
{
    return c >= escapeBase + 0x80 && c <= escapeBase + 0xFF;
}

// The length of the valid UTF-8 sequence at `at`, or 0 when the byte there begins none. Overlong
// forms, surrogates and code points past U+10FFFF are not valid.
qsizetype validSequence(const QByteArray& bytes, qsizetype at)
{
    const auto byte = [&](qsizetype i) { return static_cast<unsigned char>(bytes[i]); };
    const unsigned char lead = byte(at);
    if (lead < 0x80) return 1;
    qsizetype length = 0;
    char32_t min = 0;
    char32_t code = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        min = 0x80;
        code = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        min = 0x800;
        code = lead & 0x0F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        min = 0x10000;
        code = lead & 0x07;
    } else {
        return 0;
    }
    if (at + length > bytes.size()) return 0;
    for (qsizetype i = 1; i < length; ++i) {
        const unsigned char next = byte(at + i);
        if ((next & 0xC0) != 0x80) return 0;
        code = (code << 6) | (next & 0x3F);
    }
    if (code < min || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return 0;
    return length;
}

} // namespace

QString decode(const QByteArray& native)
{
    QString name;
    name.reserve(native.size());
    qsizetype runStart = 0;
    qsizetype at = 0;
    while (at < native.size()) {
        const qsizetype length = validSequence(native, at);
        if (length > 0) {
            at += length;
            continue;
        }
        name += QString::fromUtf8(native.constData() + runStart, at - runStart);
        name += QChar(char16_t(escapeBase + static_cast<unsigned char>(native[at])));
        runStart = ++at;
    }
    name += QString::fromUtf8(native.constData() + runStart, native.size() - runStart);
    return name;
}

QByteArray encode(const QString& name)
{
    QByteArray native;
    native.reserve(name.size());
    qsizetype runStart = 0;
    for (qsizetype i = 0; i < name.size(); ++i) {
        const char16_t c = name[i].unicode();
        if (!isEscapedByte(c)) continue;
        native += QStringView(name).mid(runStart, i - runStart).toUtf8();
        native += char(c - escapeBase);
        runStart = i + 1;
    }
    native += QStringView(name).mid(runStart).toUtf8();
    return native;
}

QString printable(const QString& name)
{
    QString out;
    out.reserve(name.size());
    for (const QChar ch : name) {
        const char16_t c = ch.unicode();
        if (c == u'\\') {
            out += QStringLiteral("\\\\");
        } else if (c == u'\n') {
            out += QStringLiteral("\\n");
        } else if (c == u'\r') {
            out += QStringLiteral("\\r");
        } else if (c == u'\t') {
            out += QStringLiteral("\\t");
        } else if (isEscapedByte(c)) {
            out += QStringLiteral("\\x%1").arg(unsigned(c - escapeBase), 2, 16, QLatin1Char('0'));
        } else if (c < 0x20 || c == 0x7F || (c >= 0x80 && c < 0xA0) || c == 0x2028 || c == 0x2029) {
            // C0 and C1 controls, and the two Unicode line breaks some terminals honour.
            out += c <= 0xFF ? QStringLiteral("\\x%1").arg(unsigned(c), 2, 16, QLatin1Char('0'))
                             : QStringLiteral("\\u%1").arg(unsigned(c), 4, 16, QLatin1Char('0'));
        } else {
            out += ch;
        }
    }
    return out;
}

} // namespace LocalFileName
