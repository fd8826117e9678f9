#pragma once

// The discovered-printer list saved to and loaded from the user's desktop, as
// a property-list array of printer dictionaries.
//
//     talvo::Status saved = talvo::writeDiscoveredList(talvo::discoveredListFilePath(), model->printers());
//     if (const auto printers = talvo::readDiscoveredList(talvo::discoveredListFilePath())) ...

#include "foundation/Status.h"

#include <QList>
#include <QString>
#include <QVariantMap>

#include <optional>

namespace talvo {

// The home folder followed by "/Desktop/DiscoveredPrinters.plist".
QString discoveredListFilePath();

// Writes the printers atomically, without their display-only icon and text
// and without NULL values (a query the printer answered with NULL). Fails,
// naming the file and the reason, when its folder does not exist or the write
// fails; the old file then stays as it was.
Status writeDiscoveredList(const QString& path, const QList<QVariantMap>& printers);

// The dictionaries of the array at path, in file order (other elements are
// skipped); nullopt, with the reason in the log, when the file cannot be read
// (see plist::loadFile) or holds no array.
std::optional<QList<QVariantMap>> readDiscoveredList(const QString& path);

} // namespace talvo
