#pragma once

// CUPS queue names, descriptions and device URIs of network printers.
//
//     QVariantMap printer{{talvo::kPrinterModelStrKey, u"Model 4000"_s},
//                         {talvo::kIPAddrStrKey, u"10.0.0.5"_s}};
//     talvo::uriDescAndQueueNameForSocketPrinter(printer);
//     // queueName "_10_0_0_5", URI "lpd://10.0.0.5", cupsDesc "Model 4000 \"10.0.0.5\""
//
//     QString name = talvo::firstFreeQueueName(u"Office"_s, queuesOfTheScheduler); // "Office_2"

#include <QString>
#include <QStringList>
#include <QStringView>
#include <QVariantMap>

namespace talvo {

// Every character that is not an ASCII letter, digit or '_' becomes '_';
// nothing is removed, shortened or folded in case.
QString convertStrForCupsQueueName(const QString& text);

// The scheduler and lpadmin take at most this many bytes of UTF-8 as a name.
inline constexpr qsizetype kMaxQueueNameBytes = 127;

// The name cut on a character boundary so that it, followed by `suffix`,
// fits in kMaxQueueNameBytes.
QString fitQueueName(const QString& name, QStringView suffix = {});

// Why the scheduler would refuse `name` for a queue (empty, too long, a blank,
// a control character or one of / \ ? ' " # @); empty when it is acceptable.
QString queueNameProblem(const QString& name);

// True when `taken` holds `name`. The scheduler compares queue names without
// regard to case, so "office" is taken by "Office".
bool isQueueNameTaken(const QString& name, const QStringList& taken);

// `wanted` (cut to fit) when it is free, else the first free of "wanted_2",
// "wanted_3", ..., each cut so the number is never lost.
QString firstFreeQueueName(const QString& wanted, const QStringList& taken);

// Sets "queueName", "URI" and "cupsDesc" of a network printer from its
// "printerModel", "ipAddr" and optional "dnsName". The queue is named after
// the DNS name when there is one, else "_" and the address (a queue name may
// not begin with a digit). The URI is always "lpd://" and the numeric address:
// the printer is reached at its address whatever name it was found under.
// False, and nothing set, when "ipAddr" is not four decimal octets: no URI is
// ever built from text that only claims to be an address.
bool uriDescAndQueueNameForSocketPrinter(QVariantMap& printer);

} // namespace talvo
