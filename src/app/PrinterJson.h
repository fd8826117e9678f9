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

// True when `seen` already holds a printer of the same "queueType" and
// "ipAddr" (printers without an address are never the same).
bool samePrinterSeen(const QList<QVariantMap>& seen, const QVariantMap& printer);

} // namespace talvo::cli
