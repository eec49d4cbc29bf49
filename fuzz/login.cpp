// Challenges of servers and proxies (a line each), and what is answered.
#include "transfer/http/login.h"
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
        for (const AuthChallenge& challenge : read_challenges(fields))
            CHECK(challenge.text.size() <= fields.front().size());
        if (!login.challenged(fields, true)) break;
    }
    login.accepted();
}
