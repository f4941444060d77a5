#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <vector>

// Reads a delimited text file as brokers write them: fields separated by commas, semicolons or tabs
// (whichever the first line holds most of), quoted with double quotes where a field holds the
// separator, a quote ("" inside quotes) or a line break; lines ending in LF or CRLF. A file that is
// not valid UTF-8 is read as Latin-1, which every byte is, and says so.
//
// Pure text work, no files; callable from any thread.
namespace CsvReader {

struct Row {
    int line = 0; // 1-based, the line the row begins on
    QStringList fields;
};

struct Table {
    std::vector<Row> rows; // blank lines left out
    QChar delimiter = u',';
    bool readAsLatin1 = false;
};

Table read(const QByteArray& bytes);

// The bytes as text: UTF-8 without its byte-order mark, or Latin-1 when they are not UTF-8.
QString decode(const QByteArray& bytes, bool* latin1 = nullptr);

// One field as it must be written to stand for `text` in a file read by `read`.
QString quoted(const QString& text, QChar delimiter = u',');

} // namespace CsvReader
