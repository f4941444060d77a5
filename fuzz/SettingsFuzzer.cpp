// A settings file of any content, as a hand edit or a crash can leave it. Reading it writes
// nothing, and every value read survives being written back and read again: a setting the program
// shows is the setting it keeps.
//
// Runs inside an application object, as the program always does: without one, Qt's own reading of
// a "@Variant(...)" value of a picture type aborts. And, as in the program, an allocation too large
// for the machine fails rather than ends the process (the sanitizer's allocator would otherwise
// stop at a length field of a binary value that asks for tens of gigabytes; Qt then drops that
// value).
#include "FuzzSupport.h"
#include "app/AppSettings.h"
#include "app/SettingsReader.h"

#include <QCoreApplication>
#include <QMetaProperty>
#include <QSettings>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace {

std::unique_ptr<QSettings> storeAt(const QString& path)
{
    return std::make_unique<QSettings>(path, QSettings::IniFormat);
}

// Every reader on every key the file has, whatever its type: none of them may trip over a value.
void readEveryKeyEveryWay(const QString& path)
{
    const auto store = storeAt(path);
    const SettingsReader read(*store);
    for (const QString& key : store->allKeys()) {
        const QByteArray name = key.toUtf8();
        const char* k = name.constData();
        (void)read.readDouble(k);
        (void)read.readBool(k);
        (void)read.rawString(k);
        (void)read.integer(k);
        (void)read.hotkey(k);
        (void)read.rect(k);
        (void)read.data(k);
    }
}

} // namespace

extern "C" const char* __asan_default_options()
{
    return "allocator_may_return_null=1";
}

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    static QCoreApplication app(*argc, *argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const QString original = FuzzSupport::scratch().filePath(QStringLiteral("original.conf"));
    const QString copy = FuzzSupport::scratch().filePath(QStringLiteral("copy.conf"));
    FuzzSupport::writeFile(original, bytes);
    QFile::remove(copy);

    readEveryKeyEveryWay(original);

    const AppSettings* read = nullptr;
    auto first = std::make_unique<AppSettings>(storeAt(original));
    read = first.get();
    {
        // Written in an order that the quality preset cannot overwrite: the mode first.
        AppSettings written(storeAt(copy));
        written.setQualityMode(read->qualityMode());
        const QMetaObject& meta = AppSettings::staticMetaObject;
        for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i) {
            const QMetaProperty property = meta.property(i);
            if (property.isWritable() && qstrcmp(property.name(), "qualityMode") != 0)
                property.write(&written, property.read(read));
        }
    }
    const AppSettings again(storeAt(copy));
    const QMetaObject& meta = AppSettings::staticMetaObject;
    for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i) {
        const QMetaProperty property = meta.property(i);
        if (!property.isWritable()) continue;
        FUZZ_CHECK(property.read(read) == property.read(&again),
            QByteArray(property.name()) + " differs after a write and a read; file:\n" + bytes);
    }
    first.reset();
    FUZZ_CHECK(FuzzSupport::readFile(original) == bytes, QByteArray("reading the settings changed their file"));
    return 0;
}
