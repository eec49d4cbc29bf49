#include "support/unix_shell.h"

#include <chrono>
#include <stdexcept>
#include <thread>

#include "base/text.h"
#include "platform/file.h"
#include "support/process_run.h"

namespace vantlow::test {
namespace {

constexpr std::chrono::seconds longest_run{20};

std::u16string own_path(const std::string& unix_file) {
    std::u16string path = to_utf16(unix_file);
    if (path_separator() == u'/') return path;
    for (char16_t& c : path) {
        if (c == u'/') c = u'\\';
    }
    return u"Z:" + path;
}

std::string quoted(const std::u16string& path) {
    return "'" + unix_path(path).value_or("") + "'";
}

}  // namespace

bool has_unix_program(const std::string& path) {
    return unix_path(u".").has_value() && path_kind(own_path("/bin/sh")) == PathKind::file &&
           path_kind(own_path(path)) == PathKind::file;
}

void run_in_shell(const TempFolder& folder, const std::string& commands) {
    const TempFolder scratch;
    const std::string place = quoted(scratch.path());
    scratch.write(u"script", "cd " + quoted(folder.path()) + "\n(\n" + commands + "\n) </dev/null >" + place +
                                 "/log 2>&1\necho $? >" + place + "/status.new\nmv " + place +
                                 "/status.new " + place + "/status\n");
    RunningProgram shell(own_path("/bin/sh"), {to_utf16(unix_path(scratch.path(u"script")).value_or(""))});
    const auto end = std::chrono::steady_clock::now() + longest_run;
    while (!scratch.has(u"status") && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    if (!scratch.has(u"status")) throw std::runtime_error("the shell does not end: " + commands);
    if (scratch.read(u"status") != "0\n") throw std::runtime_error(commands + "\n" + scratch.read(u"log"));
}

ShellProgram::ShellProgram(const TempFolder& folder, const std::string& command) {
    run_in_shell(folder, "exec >/dev/null 2>&1\ntimeout 300 " + command + " &\necho $! >" +
                             quoted(scratch_.path(u"id")));
}

ShellProgram::~ShellProgram() {
    try {
        run_in_shell(scratch_, "kill $(cat id) 2>/dev/null || true");
    } catch (const std::exception&) {
        return;  // it ends by itself
    }
}

}  // namespace vantlow::test
