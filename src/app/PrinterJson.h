#pragma once

// Printers as the command-line tool prints them: one JSON object of the
// dictionary's plain values (images and styled text left out, "in_addr_t" as
// the number stored), or one readable line for people.

#include <QJsonObject>
#include <QString>
#include <QVariantMap>

namespace talvo::cli {

QJsonObject printerToJson(const QVariantMap& printer);
QString printerToText(const QVariantMap& printer);

// Text from the network made safe for a terminal: control characters (C0,
// DEL, C1) and the backslash shown as visible escapes ("\x1b", "\\").
QString displayText(const QString& text);

// What makes two announcements the same printer: its connection type and
// address. Empty for a printer without an address (never the same as another).
QString printerIdentity(const QVariantMap& printer);

} // namespace talvo::cli
