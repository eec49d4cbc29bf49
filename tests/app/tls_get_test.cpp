// What the program makes of certificates: its exit status and its words.
#include <gtest/gtest.h>

#include "base/text.h"
#include "support/certificates.h"
#include "support/process_run.h"

namespace vantlow::test {
namespace {

TEST(TlsOfGet, ACertificateThatIsNotTrustedEndsWithSixUnlessItIsNamedOrNobodyAsks) {
    if (!Certificates::available()) GTEST_SKIP() << Certificates::missing;
    Certificates certificates;
    certificates.make("good");
    OpensslServer server(certificates, "good");
    const TempFolder folder;
    const std::u16string settings = folder.write(u"settings.ini", "");
    const struct {
        std::vector<std::u16string> words;
        int status;
        const char* told;
    } cases[] = {
        {{}, 6, "The certificate of localhost was issued by an authority that is not trusted"},
        {{u"--ca-file", certificates.authority()}, 0, ""},
        {{u"--insecure"}, 0, ""},
        {{u"--set", u"Connection/VerifyPeer=0"}, 0, ""},
        {{u"--ca-file", folder.path(u"none.pem")}, 2, "--ca-file"},
    };
    for (const auto& one : cases) {
        std::vector<std::u16string> words{u"--settings", settings,      u"get",
                                          u"-d",         folder.path(), server.url()};
        words.insert(words.end(), one.words.begin(), one.words.end());
        const RunResult result = run_vantlow(words);
        EXPECT_EQ(result.status, one.status) << result.err;
        EXPECT_NE(result.err.find(one.told), std::string::npos) << result.err;
    }
}

}  // namespace
}  // namespace vantlow::test
