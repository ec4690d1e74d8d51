// The log, and the second formatting that its messages go through.

#include "agent/debugLog.h"

#include "agent/argumentlessFormat.h"
#include "fuzz/target.h"
#include "support/systemPaths.h"
#include "tests/support/temporaryDirectory.h"

#include <cstdio>
#include <cstdlib>
#include <optional>

namespace obrin::fuzz::debugLog {
namespace {

std::string rendered(std::string_view format, std::size_t room) {
    std::string text(room + 1, '#');
    const std::size_t length = renderWithoutArguments(format, {text.data(), room});
    require(length <= room && text[room] == '#', "nothing is written behind the room");
    text.resize(length);
    return text;
}

/// The length of a conversion of a number behind a "%" that the C library renders the same with zeros for
/// arguments; nothing for any other.
std::optional<std::size_t> plainConversion(std::string_view text) {
    const auto behind = [text](std::size_t at, std::string_view set) {
        return std::min(text.find_first_not_of(set, at), text.size());
    };
    std::size_t at = behind(1, "-+ 0#");
    const std::size_t width = at;
    at = behind(at, "0123456789");
    bool isShort = at - width <= 3;
    if (at < text.size() && text[at] == '.') {
        const std::size_t precision = at + 1;
        at = behind(precision, "0123456789");
        isShort = isShort && at - precision <= 3;
    }
    const bool isNumber = at < text.size() && std::string_view("diouxXeEfFgGaA").find(text[at]) != text.npos;
    return isShort && isNumber ? std::optional(at + 1) : std::nullopt;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
std::string byTheLibrary(const std::string& conversion) {
    char text[4096];
    if (std::string_view("diouxX").find(conversion.back()) != std::string_view::npos)
        std::snprintf(text, sizeof text, conversion.c_str(), 0);
    else
        std::snprintf(text, sizeof text, conversion.c_str(), 0.0);
    return text;
}
#pragma GCC diagnostic pop

void checkConversions(std::string_view input) {
    for (std::size_t at = input.find('%'); at != input.npos; at = input.find('%', at + 1))
        if (const auto length = plainConversion(input.substr(at))) {
            const std::string conversion(input.substr(at, *length));
            require(rendered(conversion, 4096) == byTheLibrary(conversion),
                    "a zero looks as printf prints it");
        }
}

void checkLog(std::string_view input) {
    static const std::string path = workFile("LumetraAgent.log");
    static const std::string backup = workFile("LumetraAgent.log.bak");
    systemPaths().log = path;
    systemPaths().logBackup = backup;
    closeLogFile();
    openLogFile();
    const std::string text(input.substr(0, input.find('\0')));
    require(DEBUGMSG("%s", text.c_str()) == 0, "a message can be written");
    require(DEBUGFLUSH() == 0, "nothing is held back");
    closeLogFile();
    systemPaths().log.clear();
    require(test::readFile(path) ==
                rendered(std::string_view(text).substr(0, logMessageSize - 1), logMessageSize - 1),
            "the log has the message, formatted a second time");
}

void check(std::string_view input) {
    const std::string whole = rendered(input, 10000);
    for (const std::size_t room : {0U, 1U, 7U, 100U})
        require(rendered(input, room) == whole.substr(0, room), "what does not fit is cut");
    if (input.find('%') == input.npos)
        require(whole == input.substr(0, 10000), "a text without conversions stays as it is");
    checkConversions(input);
    checkLog(input);
}

const Target target("debugLog", check);

} // namespace
} // namespace obrin::fuzz::debugLog
