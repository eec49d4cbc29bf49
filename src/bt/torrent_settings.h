// The settings of the BitTorrent side.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/text.h"
#include "platform/network_way.h"
#include "store/settings.h"

namespace vantlow {

namespace setting {
inline constexpr NumberSetting numwant{u"Torrent", u"numwant", 256,
                                       1,          1024,       "how many peers a tracker is asked for"};
inline constexpr NumberSetting crypto{
    u"Torrent", u"Crypto",
    0,          0,
    3,          "encryption of peer connections: 0 both, RC4 preferred; 1 plaintext; 2 RC4; 3 both"};
inline constexpr NumberSetting most_peers{u"Torrent", u"MaxPeers", 100,
                                          1,          10000,       "connections that a torrent has at once"};
inline constexpr NumberSetting most_peers_of_all{
    u"Torrent", u"MaxPeersOfAll", 500, 1, 100000, "connections that all torrents have together"};
inline constexpr NumberSetting upload_limit{
    u"Torrent", u"UploadLimit", 0,
    0,          1LL << 50,      "bytes a second that the peers of all torrents get together; 0: no limit"};
inline constexpr NumberSetting peer_port{
    u"Torrent", u"Port", 0,
    0,          65535,   "the port at which peers call, TCP and UDP; 0, or where it is taken: a free one"};
inline constexpr NumberSetting utp{
    u"Torrent", u"UTP", 1, 0, 1, "1: peers are called, and may call, by uTP as well; TCP is preferred"};
inline constexpr NumberSetting peer_exchange{
    u"Torrent", u"PEX", 1, 0, 1, "peers tell each other of peers; never those of private torrents"};
inline constexpr NumberSetting dht{
    u"Torrent", u"DHT", 1, 0, 1, "the distributed hash table finds peers; never those of private torrents"};
inline constexpr TextSetting dht_nodes{
    u"Torrent", u"DHTNodes",
    u"router.bittorrent.com:6881|dht.transmissionbt.com:6881|router.utorrent.com:6881",
    "nodes of the distributed hash table to begin with, host:port, separated by \"|\""};
inline constexpr NumberSetting local_discovery{
    u"Torrent", u"LSD", 1, 0, 1, "peers in the same network are looked for; never those of private torrents"};
inline constexpr NumberSetting ip_filter{
    u"Torrent", u"IPFilter", 1,
    0,          1,           "1: addresses that \"ipfilter.dat\" in the data folder names are no peers"};
inline constexpr TextSetting ip_filter_file{u"Torrent", u"IPFilterFile", u"",
                                            "a further list of addresses that are no peers; empty: none"};
inline constexpr TextSetting network_interface{
    u"Torrent", u"Interface", u"",
    "the network interface, or its address, that all packets of torrents are held to; empty: any"};
inline constexpr NumberSetting port_mapping{
    u"Torrent", u"PortMapping",
    1,          0,
    1,          "1: the router is asked to let peers call (UPnP, NAT-PMP; over IPv6 its firewall)"};
inline constexpr TextSetting torrent_tracker{u"Torrent", u"DefaultTracker",
                                             u"udp://tracker.opentrackr.org:1337/announce",
                                             "the tracker for a torrent that names none"};
inline constexpr TextSetting magnet_trackers{
    u"Torrent", u"DefaultTrackers",
    u"udp://tracker.opentrackr.org:1337/announce|udp://open.stealth.si:80/announce|"
    u"udp://tracker.torrent.eu.org:451/announce|udp://exodus.desync.com:6969/announce",
    "the trackers for magnet links without numbered ones, separated by \"|\""};
inline constexpr TextSetting tracker_list{
    u"Torrent", u"TrackerList", u"",
    "the address of a list of trackers, one a line, that public torrents get beside their own; fetched once "
    "a day; empty: none"};
inline constexpr TextSetting seed_ratio{
    u"Torrent", u"SeedRatio", u"1.0",
    "the resident program shares a torrent after its end until so many times its size was sent; 0: it does "
    "not; -1: no bound"};
inline constexpr NumberSetting seed_time{
    u"Torrent", u"SeedTime", 0,
    0,          315360000,   "seconds; a torrent is shared so long at most after its end; 0: no bound"};
}  // namespace setting

/// The way that torrents are held to: "Torrent"/"Interface".
inline NetworkWay torrent_way(const Settings& settings) {
    return NetworkWay(to_utf8(settings.text(setting::network_interface)));
}

/// The tracker of a torrent that names none: "Torrent"/"DefaultTracker".
inline std::string default_tracker(const Settings& settings) {
    return to_utf8(settings.text(setting::torrent_tracker));
}

/// The trackers that magnet links without numbered ones get: "Torrent"/"DefaultTrackers", "|" between.
inline std::vector<std::string> default_magnet_trackers(const Settings& settings) {
    const std::string text = to_utf8(settings.text(setting::magnet_trackers));
    std::vector<std::string> trackers;
    for (const std::string_view tracker : split(text, '|')) {
        if (!trim(tracker).empty()) trackers.emplace_back(trim(tracker));
    }
    return trackers;
}

}  // namespace vantlow
