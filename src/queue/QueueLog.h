#pragma once

// The logging category of the queue layer, "talvo.queue".
//
//     qCWarning(lcQueue).noquote() << "getPPDPathForModel: cannot find PPD name for printer model" << model;

#include <QLoggingCategory>

// Defined here, inline, so that any file of the layer can use it without a
// source file of its own (what Q_LOGGING_CATEGORY expands to, made inline).
inline const QLoggingCategory& lcQueue()
{
    static const QLoggingCategory category("talvo.queue");
    return category;
}
