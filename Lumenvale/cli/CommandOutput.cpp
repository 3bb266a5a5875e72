#include "cli/CommandOutput.h"

namespace lumenvale {

void printTo(std::FILE* stream, const QString& text) {
    std::fputs(text.toLocal8Bit().constData(), stream);
    std::fflush(stream);
}

void printError(const QString& text) {
    printTo(stderr, text.endsWith(QLatin1Char('\n')) ? text : text + QLatin1Char('\n'));
}

} // namespace lumenvale
