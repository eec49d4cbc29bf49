// What the program makes of certificates: its exit status and its words.
#include <gtest/gtest.h>

#include "store_run.h"
#include "support/certificates.h"

namespace vantlow::test {
namespace {

using TlsOfTheProgram = StoreRun;

TEST_F(TlsOfTheProgram, ACertificateThatIsNotTrustedEndsWithSixUnlessItIsNamedOrNobodyAsks) {
    if (!Certificates::available()) GTEST_SKIP() << Certificates::missing;
    Certificates certificates;
    certificates.make("good");
    OpensslServer server(certificates, "good");
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
        std::vector<std::u16string> words{u"get", u"-d", folder.path(), server.url()};
        words.insert(words.end(), one.words.begin(), one.words.end());
        const RunResult result = run(words);
        EXPECT_EQ(result.status, one.status) << result.err;
        EXPECT_NE(result.err.find(one.told), std::string::npos) << result.err;
    }
    const std::string id = add({u"-d", folder.path(), u"-o", u"filed", server.url()});
    EXPECT_EQ(run({u"start", to_utf16(id)}).status, 1);
    ok({u"--set", u"Connection/VerifyPeer=0", u"start", to_utf16(id)});
    EXPECT_EQ(folder.read(u"filed"), OpensslServer::body);
}

}  // namespace
}  // namespace vantlow::test
