#pragma once

// The names the CUPS scheduler already uses for queues (printers and
// classes), asked over IPP through libcups, which reaches the scheduler the
// way lpadmin does (CUPS_SERVER, client.conf). Queue creation asks for them
// so that an existing queue is never changed by accident.
//
//     QString why;
//     if (const auto taken = talvo::schedulerQueueNames(&why))
//         name = talvo::firstFreeQueueName(name, *taken);
//     else
//         fail(why);
//
// Blocks for one round trip to the scheduler (at most 10 s each way); safe on
// any thread.

#include <QString>
#include <QStringList>

#include <optional>

namespace talvo {

// Every printer and class name; nullopt, with the reason in `error`, when the
// scheduler could not be asked.
std::optional<QStringList> schedulerQueueNames(QString* error = nullptr);

} // namespace talvo
