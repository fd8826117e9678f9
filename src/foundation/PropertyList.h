#pragma once

// Property lists (the format of the settings, the user preferences and the
// saved printer list) converted to and from QVariant with libplist.
//
//     auto settings = talvo::plist::readFile(path);           // XML or binary
//     if (settings && settings->typeId() == QMetaType::QVariantMap) ...
//     talvo::plist::Loaded prefs = talvo::plist::loadFile(path);  // with the reason
//     talvo::Status s = talvo::plist::writeXmlFile(path, map);  // atomic
//
// Dictionaries are QVariantMap, arrays QVariantList, strings QString, booleans
// bool, integers qlonglong (quint64 above the signed range), reals double,
// data QByteArray and dates QDateTime (UTC). Every function is safe to call
// from any thread.

#include "foundation/Status.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QVariant>

#include <optional>

namespace talvo::plist {

// Arrays and dictionaries nested deeper than this are refused on reading and
// writing: no real file comes close (ours nest a few deep), and libplist
// builds, copies and frees its trees recursively, so a file nested 200,000
// deep would overflow its stack. Reading measures the nesting in the bytes
// before libplist is given them.
inline constexpr int kMaxDepth = 128;

// A property-list file larger than this is not read: a saved list of some
// thousands of printers fits, and a file in place of ours (a disk image, a
// link to /dev/zero) cannot make us allocate what it holds.
inline constexpr qint64 kMaxFileBytes = 4 * 1024 * 1024;

// Parses an XML or binary property list; nullopt when the bytes are not one
// or nest deeper than kMaxDepth. A binary list, whose objects can be shared,
// is also refused when it would expand to more values than an XML file of
// kMaxFileBytes could hold.
std::optional<QVariant> parse(QByteArrayView bytes);

enum class LoadOutcome {
    Loaded,     // value holds the file's contents
    Missing,    // nothing at the path
    NotAFile,   // a device, a pipe, a folder: never opened for reading
    Unreadable, // the system refused to read it
    Invalid,    // read, but too large, not a property list, or nested too deep
};

struct Loaded
{
    LoadOutcome outcome = LoadOutcome::Unreadable;
    QVariant value;
    QString error; // names the file and the reason; empty when Loaded
};

// Reads and parses a regular file of at most kMaxFileBytes, without ever
// blocking on what is at the path.
Loaded loadFile(const QString& path);

// The value of loadFile, nullopt when there is none.
std::optional<QVariant> readFile(const QString& path);

// The value as an XML property list; nullopt when it holds a type a property
// list cannot carry (a null value, a widget image, ...).
std::optional<QByteArray> toXml(const QVariant& value);

// Writes the value as an XML property list with file::writeAtomically, so the
// file is either the old one or the new one, never half written; a path that
// is not a regular file is refused. Creates the parent folder when missing.
Status writeXmlFile(const QString& path, const QVariant& value);

} // namespace talvo::plist
