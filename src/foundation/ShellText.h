#pragma once

// Quote-escaping of text placed inside a command line the program builds
// itself. Commands are run from argument vectors; this helper remains for
// texts that other tools of the driver package still take as command lines.
//
//     talvo::shellEscapeStr(u"a'b"_s);   // "a''b"

#include <QString>

namespace talvo {

// A copy of the text with one extra single quote written before every '$',
// '\'' and '"'. Nothing else (no backslash, no backquote) is treated.
// Throws GenericException("Memory Error") when the copy cannot be allocated.
QString shellEscapeStr(const QString& text);

} // namespace talvo
