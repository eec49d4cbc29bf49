#!/usr/bin/env python3
"""Joins films that ffmpeg makes, and looks at the result with ffmpeg's eyes.

    films.py VANTLOW [SCENARIO...]

The joined file has the packets of the pieces in their order, its times rise, sound and picture of each piece begin as
far apart as they did in the piece, the longest track of a piece decides where the next one begins, and seeking to a
border finds the first picture behind it. Ends with 1 where one of these does not hold.
"""

import json
import os
import random
import subprocess
import sys
import tempfile

VANTLOW = None
X264 = ["-c:v", "libx264", "-preset", "veryfast", "-bf", "3", "-g", "25", "-pix_fmt", "yuv420p"]
AAC = ["-c:a", "aac"]
FRAGMENTS = ["-movflags", "frag_keyframe+empty_moov+default_base_moof"]


def run(words, fails=False):
    done = subprocess.run(words, stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
    if not fails and done.returncode != 0:
        raise AssertionError(f"{' '.join(words)}: {done.stderr}")
    return done


def make(name, *options, seconds=2.0, rate="25", size="160x120", tone=440, video=True, audio=True):
    """A film of a moving picture and a tone."""
    words = ["ffmpeg", "-v", "error", "-y"]
    if video:
        words += ["-f", "lavfi", "-i", f"testsrc=size={size}:rate={rate}:duration={seconds}"]
    if audio:
        words += ["-f", "lavfi", "-i", f"sine=frequency={tone}:sample_rate=44100:duration={seconds}"]
    run(words + list(options) + [name])
    return name


def packets(path):
    """Each stream's packets: (dts, pts, duration, md5), times in seconds; what the demuxer drops is in it."""
    answer = run(["ffprobe", "-v", "error", "-show_streams", "-show_packets", "-show_data_hash", "md5", "-of", "json", path])
    data = json.loads(answer.stdout)
    streams = {}
    for stream in data["streams"]:
        streams[stream["index"]] = {"type": stream["codec_type"], "packets": []}
    for packet in data["packets"]:
        numbers = [float(packet.get(key, "nan")) for key in ("dts_time", "pts_time", "duration_time")]
        streams[packet["stream_index"]]["packets"].append((*numbers, packet["data_hash"]))
    return [stream for stream in streams.values() if stream["packets"]]


def streams_of(path, kinds):
    """The packets by (type, order)."""
    result = {}
    for stream in packets(path):
        order = sum(1 for kind, _ in result if kind == stream["type"])
        if stream["type"] in kinds:
            result[(stream["type"], order)] = stream["packets"]
    return result


def first_picture(path, at=None):
    words = ["ffmpeg", "-v", "error"] + (["-ss", f"{at:.6f}"] if at is not None else [])
    out = run(words + ["-i", path, "-map", "0:v:0", "-frames:v", "1", "-f", "framemd5", "-"]).stdout
    return [line.split(",")[-1].strip() for line in out.splitlines() if not line.startswith("#")]


def pictures(path):
    out = run(["ffmpeg", "-v", "error", "-i", path, "-map", "0:v", "-fps_mode", "passthrough", "-f", "framemd5", "-"]).stdout
    return [line.split(",")[-1].strip() for line in out.splitlines() if not line.startswith("#")]


def combine(pieces, out):
    return json.loads(run([VANTLOW, "--json", "combine", "-o", out, *pieces]).stdout)


def check_packets(pieces, joined):
    """The pieces' packets are all there, in order and in rising time."""
    for key, together in joined.items():
        apart = [packet[3] for piece in pieces for packet in piece.get(key, [])]
        assert [packet[3] for packet in together] == apart, f"{key}: other packets than in the pieces"
        times = [packet[0] for packet in together]
        assert all(a < b for a, b in zip(times, times[1:])), f"{key}: times do not rise"
    assert set(joined) == {key for piece in pieces for key in piece}, "streams are missing"


def check_borders(pieces, joined, tolerance, slack):
    """Where the pieces begin: their first packets' times; gives the moments."""
    taken = dict.fromkeys(joined, 0)
    begins = []
    for number, piece in enumerate(pieces):
        shifts = {key: joined[key][taken[key]][1] - packets_[0][1] for key, packets_ in piece.items()}
        spread = max(shifts.values()) - min(shifts.values())
        assert spread <= tolerance, f"piece {number}: sound and picture {spread} s out of step"
        begins.append(min(shifts.values()))
        for key, packets_ in piece.items():
            taken[key] += len(packets_)
    for number in range(1, len(pieces)):
        # The earliest moment at which no track's packets run into those of the piece before.
        ends = []
        for key, packets_ in pieces[number - 1].items():
            if key in pieces[number]:
                last = packets_[-1]
                ends.append(begins[number - 1] + last[0] + last[2] - pieces[number][key][0][0])
        gap = begins[number] - max(ends)
        assert abs(gap) <= slack, f"piece {number} begins {gap} s behind the longest track before it"
    return begins


def check_film(pieces, out="out.mp4", tolerance=0.0015, slack=0.0015, kinds=("video", "audio"), seek=True, decode=True):
    told = combine(pieces, out)
    assert told["bytes"] == os.path.getsize(out) and told["path"] == out
    parts = [streams_of(piece, kinds) for piece in pieces]
    joined = streams_of(out, kinds)
    check_packets(parts, joined)
    begins = check_borders(parts, joined, tolerance, slack)
    last = max(packet[1] + packet[2] for packets_ in joined.values() for packet in packets_[-4:])
    assert abs(told["seconds"] - last) < 0.1, f"{told['seconds']} s told, {last} s there"
    if decode:
        noise = run(["ffmpeg", "-v", "warning", "-y", "-i", out, "-fps_mode", "passthrough", "-f", "framemd5", os.devnull]).stderr
        assert not noise, noise
    if seek:
        for piece, begin in list(zip(pieces, begins))[1:]:
            assert first_picture(out, begin - 0.005) == first_picture(piece), f"seeking to {begin} s finds another picture"
    with open(out, "rb") as file:
        head = file.read(64)
    if out.endswith(".mp4"):
        assert head[4:8] == b"ftyp" and b"M4V mp42isom" in head and b"moov" in head[:48], "the movie box comes late"
    return told


def refused(pieces, *texts, out="no.mp4"):
    done = run([VANTLOW, "combine", "-o", out, *pieces], fails=True)
    assert done.returncode == 1, done
    assert not os.path.exists(out) and not os.path.exists(out + ".joining"), "a partial file is left"
    for text in texts:
        assert text in done.stderr, f"{text!r} is not in {done.stderr!r}"


def scenario_b_frames_and_rates():
    check_film([make("a.mp4", *X264, *AAC), make("b.mp4", *X264, *AAC, rate="30000/1001", seconds=1.7, tone=880),
                make("c.mp4", *X264, *AAC, rate="50", seconds=1.3, tone=220)])


def scenario_sound_is_longer():
    make("v.mp4", *X264, audio=False, seconds=1)
    make("s.m4a", *AAC, video=False, seconds=1.8)
    run(["ffmpeg", "-v", "error", "-y", "-i", "v.mp4", "-i", "s.m4a", "-c", "copy", "a.mp4"])
    check_film(["a.mp4", make("b.mp4", *X264, *AAC), "a.mp4"])


def scenario_mp3():
    mp3 = ["-c:a", "libmp3lame"]
    check_film([make("a.mp4", *X264, *mp3), make("b.mp4", *X264, *mp3, seconds=1.1)])


def scenario_amr():
    # Speech of no meaning: frames of 12.2 kbit/s. There is a muxer and a decoder in ffmpeg, but no coder.
    noise = random.Random(1)
    for name, frames in (("a", 75), ("b", 40)):
        with open(name + ".amr", "wb") as file:
            file.write(b"#!AMR\n" + b"".join(b"\x3c" + noise.randbytes(31) for _ in range(frames)))
        run(["ffmpeg", "-v", "error", "-y", "-i", name + ".amr", "-c", "copy", name + ".3gp"])
    check_film(["a.3gp", "b.3gp", "a.3gp"], seek=False)
    with open("out.mp4", "rb") as file:
        assert b"samr" in file.read()


def scenario_fragments():
    plain = make("a.mp4", *X264, *AAC)
    pieces = [make("b.mp4", *X264, *AAC, *FRAGMENTS, seconds=3),
              make("c.mp4", *X264, *AAC, "-movflags", "frag_keyframe+empty_moov", seconds=1.4),
              make("d.mp4", *X264, *AAC, "-movflags", "frag_keyframe", seconds=2.2),
              make("e.mp4", *X264, *AAC, "-movflags", "frag_every_frame+empty_moov+default_base_moof", seconds=1)]
    # The demuxer guesses how long the last sample of a fragment lasts: up to a frame of sound.
    check_film([plain, *pieces], slack=0.025)
    check_film([*pieces, plain], slack=0.025)


def scenario_later_fragments():
    # A part of a longer broadcast: its times do not begin at zero.
    make("a.mp4", *X264, *AAC, *FRAGMENTS, "-output_ts_offset", "100", seconds=2)
    told = combine(["a.mp4", "a.mp4"], "out.mp4")
    assert 3.9 < told["seconds"] < 4.2, told
    check_film(["out.mp4", make("b.mp4", *X264, *AAC)], out="again.mp4")


def scenario_other_configuration():
    # The decoder is right about both; the parser of ffmpeg's demuxer complains about what it does not know.
    told = check_film([make("a.mp4", *X264, *AAC), make("b.mp4", *X264, "-profile:v", "baseline", *AAC, "-ac", "2")], decode=False)
    assert pictures("a.mp4") + pictures("b.mp4") == pictures("out.mp4"), "other pictures than in the pieces"
    with open("out.mp4", "rb") as file:
        data = file.read(100000)
    assert data.count(b"avcC") == 2 and data.count(b"esds") == 2, "a description for each configuration"
    assert told["seconds"] > 3.9


def scenario_same_configuration():
    check_film([make("a.mp4", *X264, *AAC), make("b.mp4", *X264, *AAC, tone=1000)])
    with open("out.mp4", "rb") as file:
        data = file.read(100000)
    assert data.count(b"avcC") == 1 and data.count(b"esds") == 1, "one description where only bit rates differ"
    assert b"sgpd" in data and b"sbgp" in data, "groups of samples are kept"


def scenario_hint_tracks():
    hinted = make("a.mp4", *X264, *AAC, "-movflags", "rtphint")
    size = os.path.getsize(make("b.mp4", *X264, *AAC))
    told = check_film([hinted, "b.mp4"])
    assert told["bytes"] < 2.05 * size, "the hints' bytes are still there"
    with open("out.mp4", "rb") as file:
        assert b"rtp " not in file.read(), "a hint track is left"


def scenario_one_kind_only():
    check_film([make("a.mp4", *X264, audio=False), make("b.mp4", *X264, audio=False, rate="24")])
    check_film([make("a.m4a", *AAC, video=False), make("b.m4a", *AAC, video=False, tone=1000)], seek=False)
    check_film([make("a.mp4", *X264, *AAC), make("b.mp4", *X264, audio=False), "a.mp4"])
    # One piece by itself is put in order too: the movie box comes to the front.
    check_film(["a.mp4"])


def scenario_cut_films():
    make("long.mp4", *X264, *AAC, seconds=6)
    run(["ffmpeg", "-v", "error", "-y", "-ss", "1.5", "-i", "long.mp4", "-t", "2.1", "-c", "copy", "cut.mp4"])
    # The cut hides pictures before its beginning: an edit of its own, and exactly what the cut showed.
    combine(["long.mp4", "cut.mp4", "long.mp4"], "out.mp4")
    apart = pictures("long.mp4") + pictures("cut.mp4") + pictures("long.mp4")
    assert pictures("out.mp4") == apart, "other pictures are shown than in the pieces"


def scenario_quicktime():
    pcm = ["-c:a", "pcm_s16le"]
    check_film([make("a.mov", *X264, *pcm), make("b.mov", *X264, *pcm, seconds=1.2)], decode=False)
    check_film([make("a.mov", *X264, *AAC), make("b.mp4", *X264, *AAC, "-movflags", "faststart")])


def scenario_refusals():
    good = make("a.mp4", *X264, *AAC)
    refused([good, make("b.mp4", "-c:v", "mpeg4", *AAC)], "b.mp4", "video is mp4v", "offset")
    refused([good, make("b.mp4", *X264, "-c:a", "libmp3lame")], "b.mp4", "sound is mp4a", "offset")
    with open(good, "rb") as file:
        data = file.read()
    for length in (len(data) // 2, len(data) - 40, 20):
        with open("cut.mp4", "wb") as file:
            file.write(data[:length])
        refused([good, "cut.mp4"], "cut.mp4", "offset")
        refused(["cut.mp4", good], "cut.mp4", "offset")
    with open("page.mp4", "w") as file:
        file.write("<html>not found</html>")
    refused([good, "page.mp4"], "page.mp4", "offset 0")
    refused(["page.mp4"], "page.mp4", "offset 0")
    refused([good, "absent.mp4"], "absent.mp4")
    refused([good, make("b.flv", *X264, *AAC, "-f", "flv")], "b.flv", "offset 0")
    before = os.path.getsize(good)
    done = run([VANTLOW, "combine", "-o", good, good, good], fails=True)
    assert done.returncode == 1 and os.path.getsize(good) == before, "a piece was overwritten"


def flv(name, **options):
    return make(name, *X264, *AAC, "-f", "flv", "-flvflags", "add_keyframe_index", **options)


def scenario_flv():
    pieces = [flv("a.flv"), flv("b.flv", seconds=3, tone=880), flv("c.flv", seconds=1.5)]
    told = combine(pieces, "out.flv")
    data = json.loads(run([VANTLOW, "--json", "media", "show", "out.flv"]).stdout)
    own = [json.loads(run([VANTLOW, "--json", "media", "show", piece]).stdout)["duration"] for piece in pieces]
    assert abs(data["duration"] - sum(own)) < 1e-6 and abs(told["seconds"] - sum(own)) < 1e-6, (told, own)
    assert data["filesize"] == told["bytes"] == os.path.getsize("out.flv"), (told, data)
    parts = [streams_of(piece, ("video", "audio")) for piece in pieces]
    joined = streams_of("out.flv", ("video", "audio"))
    for key, together in joined.items():
        moments = [packet[0] + sum(own[:number]) for number, part in enumerate(parts) for packet in part[key]]
        assert [p[3] for p in together] == [p[3] for part in parts for p in part[key]], f"{key}: other packets"
        worst = max(abs(a[0] - b) for a, b in zip(together, moments))
        assert worst < 0.002, f"{key}: tags are up to {worst} s from where the durations put them"
    with open("out.flv", "rb") as file:
        content = file.read()
    for position, time in zip(data["keyframes"]["filepositions"], data["keyframes"]["times"]):
        at = int(position)
        stamp = int.from_bytes(content[at + 4 : at + 7], "big") + (content[at + 7] << 24)
        assert content[at] == 9 and content[at + 11] == 0x17 and stamp == round(time * 1000), "the index points elsewhere"
    assert len(data["keyframes"]["times"]) > 6, data
    assert data["lastkeyframelocation"] == data["keyframes"]["filepositions"][-1], data
    for number, piece in enumerate(pieces):
        begin = sum(own[:number]) - 0.005 if number else None
        assert first_picture("out.flv", begin) == first_picture(piece), f"seeking to {begin} s finds another picture"


def main(words):
    global VANTLOW
    VANTLOW = os.path.abspath(words[0])
    scenarios = {name.removeprefix("scenario_"): made for name, made in globals().items() if name.startswith("scenario_")}
    failures = 0
    for name in words[1:] or scenarios:
        with tempfile.TemporaryDirectory() as folder:
            os.chdir(folder)
            try:
                scenarios[name]()
                print(f"{name}: ok")
            except AssertionError as error:
                failures += 1
                print(f"{name}: {error}")
            os.chdir("/")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
