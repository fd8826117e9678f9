#pragma once

// Property lists (the format of the settings, the user preferences and the
// saved printer list) converted to and from QVariant with libplist.
//
//     auto settings = talvo::plist::readFile(path);           // XML or binary
//     if (settings && settings->typeId() == QMetaType::QVariantMap) ...
//     talvo::Status s = talvo::plist::writeXmlFile(path, map);  // atomic
//
// Dictionaries are QVariantMap, arrays QVariantList, strings QString, booleans
// bool, integers qlonglong (quint64 above the signed range), reals double,
// data QByteArray and dates QDateTime (UTC).

#include "foundation/Status.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QVariant>

#include <optional>

namespace talvo::plist {

// Deeper nesting than this is refused on reading and writing: no real
// settings file comes close, and it bounds the recursion.
inline constexpr int kMaxDepth = 128;

// Parses an XML or binary property list; nullopt when the bytes are not one.
std::optional<QVariant> parse(QByteArrayView bytes);

// Reads and parses a file; nullopt when it cannot be read or parsed.
std::optional<QVariant> readFile(const QString& path);

// The value as an XML property list; nullopt when it holds a type a property
// list cannot carry (a null value, a widget image, ...).
std::optional<QByteArray> toXml(const QVariant& value);

// Writes the value as an XML property list through a temporary file renamed
// over the target, so the file is either the old one or the new one, never
// half written. Creates the parent folder when missing.
Status writeXmlFile(const QString& path, const QVariant& value);

} // namespace talvo::plist
