// Whole runs of the program, in which one operation of the system after the other fails once.
#include <gtest/gtest.h>

#include "base/text.h"
#include "media/sample_mp4.h"
#include "platform/file.h"
#include "platform/socket.h"
#include "store/database_files.h"
#include "support/certificates.h"
#include "support/content.h"
#include "support/fake_ftp.h"
#include "support/file_server.h"
#include "support/nginx.h"
#include "support/scripted_server.h"
#include "support/server_process.h"
#include "support/udp_server.h"
#include "torture/torment.h"

namespace vantlow::test {
namespace {

using namespace std::string_literals;

const bool is_windows = path_separator() == u'\\';

// Words that keep the program away from this machine's settings and jobs.
Said run_apart(const TempFolder& folder, std::vector<std::string> words) {
    for (const auto& [word, name] : {std::pair{"--settings", "settings.ini"}, {"--data-dir", "data"}}) {
        words.emplace_back(word);
        words.push_back(folder.utf8_path(name));
    }
    return run_here(words);
}

std::vector<std::string> get_words(const TempFolder& folder, const std::string& address) {
    return {"get",
            "-n",
            "4",
            "-d",
            folder.utf8_path("out"),
            "-o",
            "file.bin",
            "--retry-delay",
            "0",
            "--set",
            "Settings/Split Size=16384",
            address};
}

Said get(const TempFolder& folder, const std::string& address) {
    return run_apart(folder, get_words(folder, address));
}

// The file that the program says it wrote.
void look_for_told(const TempFolder& folder, const std::string& content, const Said& said) {
    // Under another name where the first could not be had.
    for (const char* name : {"out/file.bin", "out/file(1).bin"}) {
        const std::u16string path = folder.path(to_utf16(name));
        if (path_kind(path) != PathKind::none) {
            EXPECT_TRUE(file_has(path, content));
        }
        if (said.out.find(to_utf8(path)) != std::string::npos) {
            EXPECT_NE(path_kind(path), PathKind::none);
        }
    }
    if (said.status == Exit::done) {
        const bool told = said.out.find("bin\n") != std::string::npos;
        EXPECT_TRUE(told || said.err.find("standard output") != std::string::npos);
    }
}

// A name shows the whole right file or nothing.
void look_for(const TempFolder& folder, std::u16string_view name, const std::string& content,
              const Said& said) {
    const bool there = path_kind(folder.path(name)) != PathKind::none;
    if (said.status == Exit::done) {
        EXPECT_TRUE(there);
    }
    if (there) {
        EXPECT_TRUE(file_has(folder.path(name), content));
    }
}

constexpr std::size_t jobs_at_first = 30;

// A data folder with jobs in it.
void make_jobs(const TempFolder& folder) {
    std::string list;
    for (std::size_t i = 0; i < jobs_at_first; ++i) list += "http://127.0.0.1/" + std::to_string(i) + "\n";
    folder.write(u"first.txt", list);
    ASSERT_EQ(run_apart(folder, {"import", folder.utf8_path("first.txt")}).status, Exit::done);
}

// The data folder is whole and holds the jobs of before, or those and all of the new ones.
void look_at_jobs(const TempFolder& folder, std::size_t added, const Said& said) {
    const StoredDatabase stored = load_database_files(folder.path(u"data"));
    EXPECT_TRUE(stored.error.ok()) << stored.error.text();
    EXPECT_FALSE(stored.damaged);
    EXPECT_TRUE(stored.notes.empty());
    const Said listed = run_apart(folder, {"list", "--json"});
    EXPECT_EQ(listed.status, Exit::done) << listed.err;
    std::size_t jobs = 0;
    for (auto at = listed.out.find("\"address\""); at != std::string::npos;
         at = listed.out.find("\"address\"", at + 1))
        ++jobs;
    if (said.status == Exit::done) {
        EXPECT_EQ(jobs, jobs_at_first + added);
    }
    EXPECT_TRUE(jobs == jobs_at_first || jobs == jobs_at_first + added) << jobs;
}

TEST(Torture, FetchingOverHttp) {
    FileResource resource{make_content(1, 300'000)};
    resource.rate = 8'000'000;
    FileServer server(resource);
    const std::string address = "http://localhost:" + std::to_string(server.server().port()) + "/file.bin";
    torment(
        {[](const TempFolder&) {},
         [&](const TempFolder& folder) { return get(folder, address); },
         [&](const TempFolder& folder, const Said& said) { look_for_told(folder, resource.content, said); },
         {"localhost"}});
    EXPECT_GE(server.server().most_open_connections(), 4);
}

TEST(Torture, FetchingOverFtp) {
    const std::string content = make_content(2, 200'000);
    FakeFtp server({.content = content, .rate = 8'000'000});
    torment({[](const TempFolder&) {},
             [&](const TempFolder& folder) { return get(folder, server.url()); },
             [&](const TempFolder& folder, const Said& said) { look_for_told(folder, content, said); },
             {"127.0.0.1"},
             3});
}

// From real servers: the program's words behind the address, and the speed limit of the scenario.
void torment_real(const std::string& address, const std::string& content,
                  const std::vector<std::string>& subjects, const std::vector<std::string>& words,
                  int thinner, const std::string& limit = {}) {
    constexpr std::string_view start = "Start receiving data.";
    const auto fetch = [&](const TempFolder& folder, bool verbose) {
        std::vector<std::string> all = get_words(folder, address);
        all.insert(all.end(), words.begin(), words.end());
        // So slow that no connection has all before the others are logged in, however busy the machine is.
        if (verbose) all.insert(all.end(), {"-v", "--limit", "100K"});
        if (!verbose && !limit.empty()) all.insert(all.end(), {"--limit", limit});
        return run_apart(folder, all);
    };
    const TempFolder first;
    const Said said = fetch(first, true);
    ASSERT_EQ(said.status, Exit::done) << said.err;
    int receiving = 0;
    for (auto at = said.err.find(start); at != std::string::npos; at = said.err.find(start, at + 1))
        ++receiving;
    EXPECT_GE(receiving, 4) << said.err;
    torment({[](const TempFolder&) {}, [&](const TempFolder& folder) { return fetch(folder, false); },
             [&](const TempFolder& folder, const Said& result) { look_for_told(folder, content, result); },
             subjects, thinner});
}

TEST(Torture, FetchingOverTls) {
    if (!Certificates::available() || !Nginx::available()) GTEST_SKIP() << Nginx::missing;
    const std::string content = make_content(6, 300'000);
    Certificates certificates;
    certificates.make("good");
    const std::string port = std::to_string(closed_port());
    const Nginx nginx("listen 127.0.0.1:" + port + " ssl;\nlimit_rate 1m;\nssl_protocols TLSv1.2 TLSv1.3;\n" +
                      "ssl_certificate " + certificates.file("good.pem") + ";\nssl_certificate_key " +
                      certificates.file("good.key") + ";\n");
    nginx.put(u"file.bin", content);
    torment_real("https://localhost:" + port + "/file.bin", content, {"localhost", "/ca.pem"},
                 {"--ca-file", to_utf8(certificates.authority())}, 3);
}

TEST(Torture, FetchingOverSftp) {
    if (!Sshd::available()) GTEST_SKIP() << Sshd::missing;
    const std::string content = make_content(7, 300'000);
    const OtherHome home;
    const Sshd sshd("MaxStartups 100");
    sshd.documents().write(u"file.bin", content);
    torment_real(to_utf8(sshd.url16("file.bin")), content, {"127.0.0.1", "/id_ed25519"},
                 {"--accept-host-key", "--key", sshd.key_folder().utf8_path("id_ed25519")}, 12, "1M");
}

TEST(Torture, FetchingOverFtps) {
    if (!Vsftpd::available()) GTEST_SKIP() << Vsftpd::missing;
    const std::string content = make_content(8, 300'000);
    const TempFolder keys;
    // Not every system's TLS resumes the session that the server may ask for; the tests of FTPS look at that.
    const Vsftpd server(
        "ssl_enable=YES\nallow_anon_ssl=YES\nforce_anon_logins_ssl=YES\nforce_anon_data_ssl=YES\n"
        "require_ssl_reuse=NO\nanon_max_rate=2000000\nrsa_cert_file=" +
        make_certificate(keys));
    server.documents().write(u"file.bin", content);
    torment_real(to_utf8(server.url16("/file.bin", "ftps")), content, {"127.0.0.1", "/cert.pem"},
                 {"--ca-file", keys.utf8_path("cert.pem")}, 8);
}

TEST(Torture, FilingAJob) {
    torment({make_jobs,
             [](const TempFolder& folder) {
                 return run_apart(folder, {"add", "-d", folder.utf8_path("out"), "http://127.0.0.1/new"});
             },
             [](const TempFolder& folder, const Said& said) { look_at_jobs(folder, 1, said); }});
}

TEST(Torture, Listing) {
    std::string listed;
    torment({make_jobs, [](const TempFolder& folder) { return run_apart(folder, {"list"}); },
             [&](const TempFolder& folder, const Said& said) {
                 look_at_jobs(folder, 0, said);
                 const auto lines = std::count(said.out.begin(), said.out.end(), '\n');
                 if (said.status == Exit::done) {
                     EXPECT_GE(lines, static_cast<std::ptrdiff_t>(jobs_at_first));
                 }
             }});
}

TEST(Torture, Importing) {
    torment({[](const TempFolder& folder) {
                 make_jobs(folder);
                 folder.write(u"list.txt", "http://127.0.0.1/a\nhttp://127.0.0.1/b\nhttp://127.0.0.1/c\n");
             },
             [](const TempFolder& folder) {
                 return run_apart(folder, {"import", folder.utf8_path("list.txt")});
             },
             [](const TempFolder& folder, const Said& said) { look_at_jobs(folder, 3, said); }});
}

TEST(Torture, Exporting) {
    std::string exported;
    torment({[](const TempFolder& folder) {
                 make_jobs(folder);
                 folder.write(u"jobs.txt", "old");
             },
             [](const TempFolder& folder) {
                 return run_apart(folder, {"export", folder.utf8_path("jobs.txt")});
             },
             [&](const TempFolder& folder, const Said& said) {
                 const std::string now = folder.read(u"jobs.txt");
                 if (exported.empty()) exported = now;
                 EXPECT_TRUE(now == exported || (now == "old" && said.status != Exit::done)) << now;
                 look_at_jobs(folder, 0, said);
             }});
}

TEST(Torture, RunningAFiledJob) {
    FileResource resource{make_content(3, 100'000)};
    FileServer server(resource);
    std::string id;
    torment({[&](const TempFolder& folder) {
                 id = run_apart(folder, {"add", "-d", folder.utf8_path("out"), "-o", "file.bin",
                                         "--retry-delay", "0", server.url()})
                          .out;
                 id = id.substr(0, id.find_first_of("\r\n"));
             },
             [&](const TempFolder& folder) {
                 return run_apart(folder, {"start", id});
             },
             [&](const TempFolder& folder, const Said& said) {
                 look_for_told(folder, resource.content, said);
                 const StoredDatabase stored = load_database_files(folder.path(u"data"));
                 EXPECT_TRUE(stored.error.ok() && !stored.damaged);
             },
             {"127.0.0.1", "/vantlow-", "hidden window"}});
}

// Joins pieces; the output is the right one or not there.
void torment_combine(const std::vector<std::string>& pieces, const std::string& kind) {
    std::string joined;
    torment({[&](const TempFolder& folder) {
                 for (std::size_t i = 0; i < pieces.size(); ++i)
                     folder.write(to_utf16("piece" + std::to_string(i) + kind), pieces[i]);
             },
             [&](const TempFolder& folder) {
                 std::vector<std::string> words{"combine", "-o", folder.utf8_path("film" + kind)};
                 for (std::size_t i = 0; i < pieces.size(); ++i)
                     words.push_back(folder.utf8_path("piece" + std::to_string(i) + kind));
                 return run_apart(folder, std::move(words));
             },
             [&](const TempFolder& folder, const Said& said) {
                 const std::u16string film = to_utf16("film" + kind);
                 if (joined.empty()) joined = folder.read(film);
                 // The pieces that can be had are joined without the others, and the failure says so.
                 const bool told_short = said.status != Exit::done &&
                                         (said.err.find("(skipped)") != std::string::npos ||
                                          said.err.find("what comes before was taken") != std::string::npos);
                 if (!told_short) look_for(folder, film, joined, said);
                 for (std::size_t i = 0; i < pieces.size(); ++i)
                     EXPECT_EQ(folder.read(to_utf16("piece" + std::to_string(i) + kind)), pieces[i]);
             }});
}

std::string flv(char what) {
    const auto big = [](std::size_t value, int bytes) {
        std::string text;
        while (bytes-- > 0) text += static_cast<char>(value >> (8 * static_cast<unsigned>(bytes)));
        return text;
    };
    std::string film = "FLV\x01\x05\x00\x00\x00\x09\x00\x00\x00\x00"s;
    for (std::size_t i = 0; i < 20; ++i) {
        const std::string data = "\x17\x01\x00\x00\x00"s + std::string(3000, what);
        film +=
            "\x09"s + big(data.size(), 3) + big(i * 40, 3) + "\0\0\0\0"s + data + big(data.size() + 11, 4);
    }
    return film;
}

TEST(Torture, CombiningFlv) {
    torment_combine({flv('a'), flv('b')}, ".flv");
}

TEST(Torture, CombiningMp4) {
    SampleTrack track{"vide", 1000, {}};
    for (char c = 'a'; c < 'k'; ++c) track.samples.push_back({std::string(2000, c), 40, 0, true});
    torment_combine({make_mp4({track}, false), make_mp4({track}, true)}, ".mp4");
}

std::string without_date(std::string torrent) {
    const auto at = torrent.find("13:creation date");
    if (at != std::string::npos) torrent.erase(at, torrent.find('e', at + 16) + 1 - at);
    return torrent;
}

TEST(Torture, MakingATorrent) {
    std::string made;
    torment({[](const TempFolder& folder) {
                 static_cast<void>(make_folders(folder.path(u"files/below")));
                 folder.write(u"files/a", make_content(4, 100'000));
                 folder.write(u"files/below/b", make_content(5, 70'000));
             },
             [](const TempFolder& folder) {
                 return run_apart(folder, {"torrent", "make", folder.utf8_path("files"), "--piece-length",
                                           "16K", "--tracker", "http://127.0.0.1/announce"});
             },
             [&](const TempFolder& folder, const Said& said) {
                 const bool there = folder.has(u"files.torrent");
                 if (said.status == Exit::done) {
                     EXPECT_TRUE(there);
                 }
                 if (!there) return;
                 const std::string torrent = without_date(folder.read(u"files.torrent"));
                 if (made.empty()) made = torrent;
                 EXPECT_EQ(torrent, made);
             }});
}

void torment_announce(const std::string& tracker) {
    torment({[&](const TempFolder& folder) {
                 folder.write(u"one.torrent",
                              "d8:announce" + std::to_string(tracker.size()) + ":" + tracker +
                                  "4:infod6:lengthi3e4:name1:f12:piece lengthi16384e6:pieces20:" +
                                  std::string(20, 'h') + "ee");
             },
             [](const TempFolder& folder) {
                 return run_apart(folder, {"torrent", "announce", folder.utf8_path("one.torrent")});
             },
             [](const TempFolder&, const Said& said) {
                 if (said.status == Exit::done) {
                     EXPECT_NE(said.out.find("5.6.7.8:80"), std::string::npos);
                 }
             },
             {"localhost"}});
}

TEST(Torture, AnnouncingOverHttp) {
    ScriptedServer server([](Exchange& exchange) {
        exchange.answer(200, "OK", "d8:intervali900e5:peersld2:ip7:5.6.7.84:porti80eeee");
    });
    torment_announce("http://localhost:" + std::to_string(server.port()) + "/announce");
}

TEST(Torture, AnnouncingOverUdp) {
    UdpServer server([](const std::string& datagram) -> std::vector<std::string> {
        const std::string transaction = datagram.substr(12, 4);
        if (datagram.size() == 16) return {"\0\0\0\0"s + transaction + "connid12"};
        return {"\0\0\0\x01"s + transaction + "\0\0\0\x78\0\0\0\x05\0\0\0\x06\x05\x06\x07\x08\0\x50"s};
    });
    torment_announce("udp://localhost:" + std::to_string(server.port()) + "/announce");
}

TEST(Torture, ChangingASetting) {
    torment({[](const TempFolder& folder) { folder.write(u"settings.ini", "; mine\n[Others]\nKept=1\n"); },
             [](const TempFolder& folder) {
                 // On Windows in the registry, where the user's settings are.
                 std::vector<std::string> words{"settings", "set", "Performance/MaxJobs", "5"};
                 return is_windows ? run_here(words) : run_apart(folder, words);
             },
             [](const TempFolder& folder, const Said& said) {
                 if (is_windows) return;
                 const std::string text = folder.read(u"settings.ini");
                 EXPECT_TRUE(text.starts_with("; mine\n[Others]\nKept=1\n")) << text;
                 if (said.status == Exit::done) {
                     EXPECT_NE(text.find("MaxJobs=5"), std::string::npos) << text;
                 }
             },
             {"Performance/MaxJobs"}});
}

}  // namespace
}  // namespace vantlow::test
