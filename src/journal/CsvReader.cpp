#include "journal/CsvReader.h"

#include <QStringDecoder>

namespace CsvReader {

namespace {

// The separator of the first line's fields: the most frequent of comma, semicolon and tab outside
// quotes; a comma when there is none.
QChar guessDelimiter(const QString& text)
{
    int commas = 0;
    int semicolons = 0;
    int tabs = 0;
    bool quoted = false;
    for (const QChar c : text) {
        if (c == u'"') quoted = !quoted;
        if (quoted) continue;
        if (c == u'\n') break;
        if (c == u',') ++commas;
        if (c == u';') ++semicolons;
        if (c == u'\t') ++tabs;
    }
    if (tabs > commas && tabs > semicolons) return u'\t';
    if (semicolons > commas) return u';';
    return u',';
}

bool isBlank(const QStringList& fields)
{
    for (const QString& f : fields)
        if (!f.trimmed().isEmpty()) return false;
    return true;
}

} // namespace

QString decode(const QByteArray& bytes, bool* latin1)
{
    QStringDecoder utf8(QStringDecoder::Utf8);
    QString text = utf8(bytes);
    const bool wasLatin1 = utf8.hasError();
    if (wasLatin1) text = QString::fromLatin1(bytes);
    if (latin1) *latin1 = wasLatin1;
    return text;
}

Table read(const QByteArray& bytes)
{
    Table table;
    const QString text = decode(bytes, &table.readAsLatin1);
    table.delimiter = guessDelimiter(text);

    Row row;
    row.line = 1;
    QString field;
    bool quoted = false;
    int line = 1;
    const auto endRow = [&](int nextLine) {
        row.fields << field;
        field.clear();
        if (!isBlank(row.fields)) table.rows.push_back(std::move(row));
        row = Row {};
        row.line = nextLine;
    };
    const qsizetype n = text.size();
    for (qsizetype i = 0; i < n; ++i) {
        const QChar c = text[i];
        if (quoted) {
            if (c == u'"') {
                if (i + 1 < n && text[i + 1] == u'"') {
                    field += u'"';
                    ++i;
                } else {
                    quoted = false;
                }
            } else {
                if (c == u'\n') ++line;
                field += c;
            }
            continue;
        }
        if (c == u'"') {
            quoted = true;
        } else if (c == table.delimiter) {
            row.fields << field;
            field.clear();
        } else if (c == u'\r' && i + 1 < n && text[i + 1] == u'\n') {
            // The CR of a CRLF ends nothing by itself.
        } else if (c == u'\n') {
            ++line;
            endRow(line);
        } else {
            field += c;
        }
    }
    // A last line without its line break, or a quote never closed: what was read stands.
    endRow(line);
    return table;
}

QString quoted(const QString& text, QChar delimiter)
{
    const bool needs = text.contains(delimiter) || text.contains(u'"') || text.contains(u'\n') || text.contains(u'\r')
        || text.startsWith(u' ') || text.endsWith(u' ');
    if (!needs) return text;
    QString escaped = text;
    escaped.replace(QStringLiteral("\""), QStringLiteral("\"\""));
    return u'"' + escaped + u'"';
}

} // namespace CsvReader
