#pragma once

// The device listing that the CUPS usb backend prints when it runs without
// arguments, and the IEEE 1284 device IDs inside it, as pure functions over
// the backend's output.
//
//     const talvo::UsbListing listing = talvo::parseUsbListing(result.standardOutput);
//     if (listing.reportsNoDevice)
//         forgetUsbPrinters();
//     else if (!listing.entries.empty() && listing.entries.front().device)
//         consider(*listing.entries.front().device); // its model, URI...
//
// Current format, one device a line:
//     direct usb://TALVO/Model%20X?serial=A1 "TALVO Model X" "Model X USB #1" "MFG:TALVO;MDL:Model X;" ""
// the class and the URI, each up to white space, then two to four quoted
// fields: make and model, description, and optionally the device ID and the
// location. Inside quotes a backslash takes the next character as it is
// (the backend writes \" and \\).
//
// Legacy format (backends of older systems): the output is searched for
// "usb://" in any case; the URI runs up to white space and two quoted fields
// follow, the second being the model. It knows no escapes.
//
// Each line is read as UTF-8 when it is valid UTF-8, else as ISO Latin 1
// (older devices report their names in it).

#include <QByteArrayView>
#include <QMap>
#include <QString>
#include <QStringView>

#include <optional>
#include <vector>

namespace talvo {

struct UsbDevice
{
    QString deviceClass; // "direct"; empty in the legacy format
    QString uri;         // exactly as the backend printed it
    QString makeAndModel;
    QString info;     // the description; in the legacy format, the model
    QString deviceId; // IEEE 1284 device ID, empty when not printed
    QString location; // empty when not printed
    // The device ID's "MDL" value (empty without one); in the legacy
    // format, the second quoted field.
    QString model;

    bool operator==(const UsbDevice&) const = default;
};

struct UsbListingEntry
{
    QString text;                    // what the entry was read from, for the log
    std::optional<UsbDevice> device; // nullopt: the text is not a device entry
};

struct UsbListing
{
    // The backend says that no device is attached: in the current format
    // it printed nothing at all, in the legacy one no "usb://". Output of
    // blanks alone says neither.
    bool reportsNoDevice = false;
    // In the order printed: the first is the first device the backend saw.
    std::vector<UsbListingEntry> entries;
};

// One entry per line that is not blank.
UsbListing parseUsbListing(QByteArrayView output);

// One entry per "usb://" found, each search going on after the previous
// device (or after the "usb://" of an entry that could not be read).
UsbListing parseLegacyUsbListing(QByteArrayView output);

// "KEY:value;" pairs: the text is split at every ';' and each piece at every
// ':'; a piece that gives exactly two parts is an entry (keys and values as
// written, so keys are case-sensitive and a value holding ':' is dropped).
// A later duplicate key wins.
QMap<QString, QString> parseIEEE1284DeviceId(QStringView deviceId);

} // namespace talvo
