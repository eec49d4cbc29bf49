#include "platform/system_services.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <ras.h>
#include <raserror.h>

#include "support/fault_hook.h"
#include "support/recording_log.h"

namespace vantlow {
namespace {

using StateFunction = DWORD(APIENTRY*)(ULONG_PTR, DWORD, HRASCONN, UINT, RASCONNSTATE, DWORD, DWORD);

// A modem of the tests.
struct Modem {
    DWORD answer = ERROR_SUCCESS;  // of the dialling itself
    bool connects = true;
    int dialled = 0;
    int dropped = 0;
    std::wstring entry;
    std::wstring user;
};
Modem modem;

DWORD APIENTRY dial(RASDIALEXTENSIONS*, const wchar_t*, RASDIALPARAMSW* params, DWORD, void* told,
                    HRASCONN* line) {
    ++modem.dialled;
    modem.entry = params->szEntryName;
    modem.user = params->szUserName;
    *line = reinterpret_cast<HRASCONN>(&modem);
    if (modem.answer == ERROR_SUCCESS) {
        const auto tell = reinterpret_cast<StateFunction>(told);
        tell(0, 0, *line, 0, modem.connects ? RASCS_Connected : RASCS_OpenPort,
             modem.connects ? ERROR_SUCCESS : ERROR_LINE_BUSY, 0);
    }
    return modem.answer;
}

DWORD APIENTRY hang_up(HRASCONN) {
    ++modem.dropped;
    return ERROR_SUCCESS;
}

DWORD APIENTRY error_text(UINT error, wchar_t* text, DWORD size) {
    static_cast<void>(swprintf(text, size, L"reason %u", error));
    return ERROR_SUCCESS;
}

class DialUp : public testing::Test {
  protected:
    DialUp() { modem = {}; }
    Result dial_it() {
        DialUpOperations operations;
        operations.dial = reinterpret_cast<void*>(dial);
        operations.hang_up = reinterpret_cast<void*>(hang_up);
        operations.error_text = reinterpret_cast<void*>(error_text);
        return dial_up(operations, {u"Home", u"me", u"secret"}, stop, log);
    }
    StopSource stop;
    test::RecordingLog log;
};

TEST_F(DialUp, ConnectsOrTellsWhyNotAndDropsTheLine) {
    EXPECT_TRUE(dial_it().ok());
    EXPECT_TRUE(modem.entry == L"Home" && modem.user == L"me" && modem.dropped == 0);
    modem.connects = false;
    EXPECT_EQ(dial_it().message(), "Dialling failed: reason " + std::to_string(ERROR_LINE_BUSY));
    EXPECT_EQ(modem.dropped, 1);
    modem.answer = ERROR_NO_CARRIER;
    EXPECT_EQ(dial_it().message(), "Dialling failed: reason " + std::to_string(ERROR_NO_CARRIER));
    EXPECT_EQ(modem.dropped, 2);
    EXPECT_EQ(log.count("secret"), 0U);
}

TEST_F(DialUp, FailsWhereTheSystemDoes) {
    test::FailNth fault(Operation::dial, 1, FileFault::access);
    const HookInPlace in_place(fault);
    const Result result = dial_it();
    EXPECT_EQ(result.code, Code::transient);
    EXPECT_EQ(result.message().rfind("Dialling failed: ", 0), 0U) << result.message();
    EXPECT_EQ(fault.failed(), 1);
    EXPECT_EQ(modem.dialled, 0);
}

}  // namespace
}  // namespace vantlow
