// The usb backend's listing carries text that any USB device can shape (its
// names and device ID). The parsers must take anything without a fault, and
// each line of the listing must read the same on its own.
#include "discovery/UsbListing.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArrayView bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    talvo::parseLegacyUsbListing(bytes);
    talvo::parseIEEE1284DeviceId(QString::fromLatin1(bytes));
    for (const talvo::UsbListingEntry& entry : talvo::parseUsbListing(bytes).entries) {
        // A line is read as UTF-8 when it is, else as Latin 1: its text in
        // UTF-8 reads back the same either way.
        const talvo::UsbListing alone = talvo::parseUsbListing(entry.text.toUtf8());
        if (alone.entries.size() != 1 || alone.entries[0].device != entry.device ||
            (entry.device && entry.device->uri.isEmpty()))
            std::abort();
    }
    return 0;
}
