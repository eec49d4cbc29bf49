// Jobs and trees that the store's tests share.
#pragma once

#include <memory>
#include <string>

#include "store/category.h"

namespace vantlow::test {

/// A job in which no two members hold the same value, none its default, so that a swapped or forgotten field
/// is seen.
inline std::unique_ptr<CJobNode> full_job() {
    auto job = std::make_unique<CJobNode>();
    job->identity = Guid::from_numbers(0x1111, 0x2222);
    job->category = Guid::from_numbers(0x77, 0x88);
    job->order = 601;
    job->address = u"http://h/\u00E4";
    job->fragment = u"#frag";
    job->referer = u"http://r/";
    job->comment = u"one\r\ntwo";
    job->user = u"ann";
    job->password = u"secret";
    job->agent = u"agent/1";
    job->cookie = u"a=b; c=\u20AC";
    job->proxy = u"socks5://p:1";
    JobSources sources;
    sources.mirrors = {u"m", u"n"};
    sources.size = 620;
    sources.whole = ExpectedHash{DigestKind::md5, std::vector<std::byte>(16, std::byte{'h'})};
    sources.pieces = PieceHashes{DigestKind::sha1, 621, std::vector<std::byte>(40, std::byte{'p'})};
    job->sources = std::make_shared<JobSources>(std::move(sources));
    job->path = u"/d/f.bin";
    job->file_name = u"wanted.bin";
    job->locally = 602;
    job->utf8 = 603;
    job->start_mode = 604;
    job->connections = 605;
    job->max_threads = 606;
    job->retry_delay = 607;
    job->retry_by_settings = 608;
    job->retries = 609;
    job->longest_pause = 610;
    job->silence_limit = 611;
    job->kind = 612;
    job->automatic_referer = 613;
    job->whole_file = 614;
    job->file_size = 0x123456789ALL;
    job->min_split_size = 0x2000000001LL;
    job->block_base = -0x3000000001LL;
    job->created = 0x4000000001LL;
    job->finished = 0x5000000001LL;
    job->state = JobState::failed;
    job->result = Code::busy;
    job->error = "HTTP/1.1 503 B\xC3\xBCsy";
    job->rules =
        std::make_shared<const JobRules>(JobRules{630, true, true, true, u"/ca.pem", u"/id_key", 631, "2-3",
                                                  "2", "3", true, true, 633, 636, true, 1.5, 632});
    job->tally = std::make_shared<const TorrentTally>(TorrentTally{633, 634, 635, true});
    job->form = std::make_shared<const PostedForm>(PostedForm{"text/plain", std::string("a\0b", 3)});
    job->validators = {"W/\"\xE4tag\"", "Tue, 01 Jan 2030 00:00:00 GMT", true, "text/plain"};
    job->partial_mark = {0x6000000001LL, 7, 0x6000000000LL, "0123abcd"};
    job->bit_map = {0xA5, 0x01};
    job->bit_count = 9;
    job->bit_map_mark = "mark";
    CJobSeg& first = job->append_segment(1, 1000);
    first.extra().start_time = 20;
    first.extra().end_time = 30;
    first.extra().first_block = 40;
    first.extra().text = u"track";
    first.extra().slots[0] = {u"s0", 50, 51};
    first.extra().slots[2] = {u"", -52, -53};
    job->append_segment(2000, 0x123456789ALL);
    auto entry = std::make_unique<CScheduleNode>();
    entry->action = 2;
    entry->weekdays = 0x41;
    entry->time = 86399;
    job->schedule.push_back(std::move(entry));
    return job;
}

inline std::unique_ptr<CClassNode> category(std::u16string name, std::uint64_t number) {
    auto node = std::make_unique<CClassNode>();
    node->identity = Guid::from_numbers(number, 0);
    node->folder = u"/folder/" + name;
    node->name = std::move(name);
    return node;
}

/// "Downloading" with two children and a grandchild under the first, jobs in three of them.
inline CategoryTree sample_tree() {
    CategoryTree tree;
    CClassNode& root = tree.insert(category(u"Downloading", 0), nullptr);
    CClassNode& music = tree.insert(category(u"Music", 0x77), &root);
    CClassNode& live = tree.insert(category(u"Live", 0x99), &music);
    tree.insert(category(u"Completed", 0xAA), &root);
    root.jobs.push_back(full_job());
    root.jobs.back()->category = root.identity;
    root.jobs.push_back(std::make_unique<CJobNode>());
    music.jobs.push_back(full_job());
    music.jobs.back()->category = music.identity;
    live.jobs.push_back(full_job());
    live.jobs.back()->category = live.identity;
    return tree;
}

}  // namespace vantlow::test
