#pragma once

// The key strings of the printer dictionary, the settings and the other shared
// dictionaries. This header is the one place where their texts appear; every
// other file names the constant.
//
// Constants are constexpr views so that they can be used from any static
// initialiser; they convert to QString where a QVariantMap wants one:
//
//     QVariantMap printer;
//     printer.insert(talvo::kIPAddrStrKey, QStringLiteral("10.0.0.5"));

#include <QLatin1StringView>

namespace talvo {

using Key = QLatin1StringView;

// Printer dictionary.
inline constexpr Key kIPAddressNumberKey{"in_addr_t"};
inline constexpr Key kIPAddrStrKey{"ipAddr"};
inline constexpr Key kDnsNameKey{"dnsName"};
inline constexpr Key kMacAddrStrKey{"macAddr"};
inline constexpr Key kPrinterModelStrKey{"printerModel"};
inline constexpr Key kPrinterLocationKey{"printerLocation"};
inline constexpr Key kPrinterContactKey{"printerContact"};
inline constexpr Key kSNMPObjIDKey{"sysObjId"};
inline constexpr Key kSNMPDescKey{"sysDescr"};
inline constexpr Key kPrinterNameFromPrtMibKey{"printMibName"};
inline constexpr Key kQueueConnectionTypeStrKey{"queueType"};
inline constexpr Key kPrinterIconImgKey{"printerIcon"};
inline constexpr Key kPrinterPresentationStrKey{"presentationText"};
inline constexpr Key kCUPSQueueNameKey{"queueName"};
inline constexpr Key kCUPSPrinterURIKey{"URI"};
inline constexpr Key kCUPSQueueDescKey{"cupsDesc"};

// Values of "queueType". Every value but "USB" is a network printer; the value
// is also shown to the user at the end of the printer's display text.
inline constexpr Key kQueueTypeRawTCP{"Raw TCP"};
inline constexpr Key kQueueTypeBonjour{"Bonjour"};
inline constexpr Key kQueueTypeUSB{"USB"};

// Fields of a decoded walkup packet.
inline constexpr Key walkupTypeKey{"type"};
inline constexpr Key walkupModelKey{"model"};
inline constexpr Key walkupMacAddrKey{"macaddr"};
inline constexpr Key walkupUserNameKey{"user"};
inline constexpr Key walkupStatusKey{"status"};
inline constexpr Key walkupIPAddrKey{"ipaddr"};

// Bonjour TXT record keys.
inline constexpr Key txtRecordPrinterModelKey{"product"};
inline constexpr Key txtRecordManufacturerKey{"usb_MFG"};
inline constexpr Key txtRecordModelKey{"usb_MDL"};

// IEEE 1284 device-ID fields.
inline constexpr Key kIEEE1284ManufacturerKey{"MFG"};
inline constexpr Key kIEEE1284ModelKey{"MDL"};
inline constexpr Key kIEEE1284DescriptionKey{"DES"};
inline constexpr Key kIEEE1284DeviceClassKey{"CLS"};
inline constexpr Key kIEEE1284PDLSupportedKey{"CMD"};
inline constexpr Key kIEEE1284SerialKey{"SERN"};

// Keys of the known-network OID tables.
inline constexpr Key CacheEnabledKey{"CacheEnabledKey"};
inline constexpr Key AddressCache1Key{"AddressCache1Key"};
inline constexpr Key AddressCache2Key{"AddressCache2Key"};
inline constexpr Key AddressCache3Key{"AddressCache3Key"};
inline constexpr Key AddressCache4Key{"AddressCache4Key"};

// The installer's record of the queue just created.
inline constexpr Key kInstalledPrinterDictKey{"InstalledPrinter"};

// Part of the key set, not read by any operation; kept so that dictionaries
// from other tools of the driver package keep their names.
inline constexpr Key kUSBSerialNumberKey{"USBSerialNumber"};
inline constexpr Key SerialNumberKey{"SerialNumberKey"};
inline constexpr Key SerialNumberOID{"SerialNumberOID"};
inline constexpr Key InformationForwardingOID{"InformationForwardingOID"};
inline constexpr Key InfoForwardingStatusKey{"InfoForwardingStatusKey"};
inline constexpr Key kOIDs{"OIDs"};

// Icon cache key of the fallback icon.
inline constexpr Key genericPrinterImageKey{"Generic Printer icon"};

// The SNMP result dictionary: the status of the exchange beside one entry per
// answered OID under the caller's key.
inline constexpr Key SNMPQueryOperationResultKey{"SNMPOperationResult"};
inline constexpr Key SNMPQueryOperationResultStringKey{"SNMPOperationResultString"};
inline constexpr Key SNMPQueryErrorKey{"SNMPError"};

// "PluginSettings.plist", top level.
inline constexpr Key kVendorKey{"Vendor"};
inline constexpr Key kDiscoverySettingsKey{"DiscoverySettings"};
inline constexpr Key kSupportedPrintersKey{"SupportedPrinters"};
inline constexpr Key kQuickStartURLKey{"QuickStartURL"};
inline constexpr Key kRegistrationURLKey{"RegistrationURL"};
inline constexpr Key kRootHTTPAddressKey{"RootHTTPAddress"};
// Optional: where the model PPDs live when not in the default folder.
inline constexpr Key kPPDDirectoryKey{"PPDDirectory"};

// "DiscoverySettings", and the flat user preference file.
inline constexpr Key useBonjourKey{"UseBonjour"};
inline constexpr Key useSorlenDiscoveryKey{"UseSorlenDiscovery"};
inline constexpr Key useSorlenWalkupKey{"UseSorlenWalkup"};
inline constexpr Key useUSBDiscoveryKey{"UseUSBDiscovery"};
inline constexpr Key discoverPrinterTypesKey{"PrinterModelList"};
inline constexpr Key snmpCommunityGetKey{"snmpGetCommunity"};
inline constexpr Key snmpCommunitySetKey{"snmpSetCommunity"};
inline constexpr Key userNameKey{"userName"};

// A model record in "SupportedPrinters". Its icon file name is stored under
// the same key string as the printer dictionary's icon (kPrinterIconImgKey).
inline constexpr Key kSysObjIDKey{"SysObjID"};
inline constexpr Key kPPDFileNameKey{"PPDFile"};

// The version record of the resources folder ("Info.plist").
inline constexpr Key kBundleShortVersionKey{"CFBundleShortVersionString"};
inline constexpr Key kBundleVersionKey{"CFBundleVersion"};

} // namespace talvo
