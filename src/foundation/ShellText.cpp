#include "foundation/ShellText.h"

#include "foundation/GenericException.h"

#include <new>
#include <string>

namespace talvo {

QString shellEscapeStr(const QString& text)
{
    const QByteArray in = text.toUtf8();
    std::string out;
    try {
        // Twice the input at most, plus the terminator: an input made only of
        // the treated characters fills the doubled size exactly.
        out.reserve(2 * static_cast<std::size_t>(in.size()) + 1);
    } catch (const std::bad_alloc&) {
        throw GenericException("Memory Error");
    }
    for (const char c : in) {
        if (c == '$' || c == '\'' || c == '"')
            out.push_back('\'');
        out.push_back(c);
    }
    return QString::fromUtf8(out.data(), static_cast<qsizetype>(out.size()));
}

} // namespace talvo
