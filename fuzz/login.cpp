// Challenges of servers and proxies (a line each), and what is answered.
#include "transfer/http/auth_scheme.h"

#include <algorithm>

#include "fuzz.h"
#include "libraries.h"
#include "transfer/http/request.h"

void vantlow::fuzz::run(std::string_view input) {
    static const LoginOperations operations = login_operations();
    LoginMemory memory;
    SchemeLogin login({"http://h:80", "DOMAIN\\user", "secret"}, operations, &memory);
    login.connected(false);
    for (int requests = 0; requests < 8; ++requests) {
        HttpRequest request;
        request.login = {login.line("GET", "/file"), login.shown()};
        CHECK(login.shown().find("secret") == std::string::npos);
        for (const RequestLine& line : request_lines(request))
            CHECK(line.text.find_first_of(std::string_view("\r\n\0", 3)) == std::string::npos);
        const std::vector<std::string> fields{std::string(take_until(input, '\n'))};
        const auto commas = std::count(fields.front().begin(), fields.front().end(), ',');
        for (const AuthChallenge& challenge : read_challenges(fields)) {
            // A blank is put behind each comma.
            CHECK(challenge.text.size() <= fields.front().size() + static_cast<std::size_t>(commas));
        }
        if (!login.challenged(fields, true)) break;
    }
    login.accepted();
}
