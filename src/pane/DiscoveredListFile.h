#pragma once

// The discovered-printer list saved to and loaded from the user's desktop, as
// a property-list array of printer dictionaries.
//
//     talvo::writeDiscoveredList(talvo::discoveredListFilePath(), model->printers());
//     if (const auto printers = talvo::readDiscoveredList(talvo::discoveredListFilePath())) ...

#include <QList>
#include <QString>
#include <QVariantMap>

#include <optional>

namespace talvo {

// The home folder followed by "/Desktop/DiscoveredPrinters.plist".
QString discoveredListFilePath();

// Writes the printers atomically, without their display-only icon and text.
// False when the file's folder does not exist or the write fails.
bool writeDiscoveredList(const QString& path, const QList<QVariantMap>& printers);

// The dictionaries of the array at path, in file order (other elements are
// skipped); nullopt when the file cannot be read or holds no array.
std::optional<QList<QVariantMap>> readDiscoveredList(const QString& path);

} // namespace talvo
