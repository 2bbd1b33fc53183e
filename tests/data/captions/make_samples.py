"""Makes the caption files of this folder, from the published layouts and without the code that they test."""
import os

here = os.path.dirname(os.path.abspath(__file__))


def parity(byte):
    return byte | 0x80 if bin(byte & 0x7F).count("1") % 2 == 0 else byte & 0x7F


def pair(first, second):
    return parity(first) << 8 | parity(second)


def control(first, second):
    return [pair(first, second)] * 2


def pop_on(lines):
    """Erase the hidden screen, load lines into the bottom rows, show them."""
    rows = {14: (0x14, 0x50), 15: (0x14, 0x70)}
    words = control(0x14, 0x2E) + control(0x14, 0x20)
    for row, line in zip(range(16 - len(lines), 16), lines):
        words += control(*rows[row])
        codes = [ord(c) for c in line] + [0] * (len(line) % 2)
        words += [pair(a, b) for a, b in zip(codes[::2], codes[1::2])]
    return words + control(0x14, 0x2F)


ERASE = control(0x14, 0x2C)


def write(name, text):
    with open(os.path.join(here, name), "w", encoding="ascii", newline="\n") as file:
        file.write(text)


def scc(name, separator):
    parts = [
        ("00:00:01" + separator + "00", pop_on(["GOOD MORNING"])),
        ("00:00:03" + separator + "15", ERASE),
        ("00:01:00" + separator + "02", pop_on(["TWO LINES", "OF TEXT."])),
        ("00:01:02" + separator + "00", ERASE),
    ]
    text = "Scenarist_SCC V1.0\n"
    for time, words in parts:
        text += "\n" + time + "\t" + " ".join("%04x" % word for word in words) + "\n"
    write(name, text)


def service_packet(text):
    """Delete windows, define window 0 (visible, one row), text, end of text: one block of service 1."""
    data = bytes([0x8C, 0xFF, 0x98, 0x20, 0xDA, 50, 0x70, 31, 0x09]) + text.encode("ascii") + b"\x03"
    packet = bytes([0x20 | len(data)]) + data
    packet += b"\0" * ((len(packet) + 1) % 2)
    packet = bytes([(len(packet) + 1) // 2]) + packet
    return [(0xFF if i == 0 else 0xFE, packet[i], packet[i + 1]) for i in range(0, len(packet), 2)]


def cdp(code, counter, triplets):
    body = bytes([0x96, 0x69, 0, code << 4 | 15, 0x43]) + counter.to_bytes(2, "big")
    body += bytes([0x72, 0xE0 | len(triplets)]) + b"".join(bytes(t) for t in triplets)
    body += b"\x74" + counter.to_bytes(2, "big")
    body = body[:2] + bytes([len(body) + 1]) + body[3:]
    return body + bytes([-sum(body) & 255])


SHORT = [(b"\xfa\0\0" * n, chr(ord("F") + n)) for n in range(9, 0, -1)]
SHORT += [(b"\xe1\0\0\0", "U"), (b"\xfb\x80\x80", "P"), (b"\xfc\x80\x80", "Q"), (b"\xfd\x80\x80", "R"),
          (b"\x96\x69", "S"), (b"\x61\x01", "T"), (b"\0", "Z")]


def shorten(data):
    text = ""
    while data:
        for piece, letter in SHORT:
            if data.startswith(piece):
                text += letter
                data = data[len(piece):]
                break
        else:
            text += "%02X" % data[0]
            data = data[1:]
    return text


COMMENT = """\
///////////////////////////////////////////////////////////////////////////////////
//
// Ancillary data packets with closed captions, one a line
//
// General file format:
//   HH:MM:SS:FF(tab)[Hexadecimal ANC data in groups of 2 characters]
//     Hexadecimal data starts with the Ancillary Data Packet DID (Data ID)
//       and concludes with the Check Sum following the User Data Words.
//     Each time code line must contain at most one complete ancillary data packet.
//     To transfer additional ANC Data successive lines may contain identical time code.
//
//   ANC data bytes may be represented by one ASCII character according to the following schema:
//     G  FAh 00h 00h
""" + "".join("//     %c  %d x (FAh 00h 00h)\n" % (ord("F") + n, n) for n in range(2, 10)) + """\
//     P  FBh 80h 80h
//     Q  FCh 80h 80h
//     R  FDh 80h 80h
//     S  96h 69h
//     T  61h 01h
//     U  E1h 00h 00h 00h
//     Z  00h
//
///////////////////////////////////////////////////////////////////////////////////
"""


def mcc(name, rate, code, count, version, place=""):
    """Two seconds from 00:00:00:00: one pop-on caption on line 21, the same text as service 1."""
    nominal = int(rate.rstrip("DF"))
    words = pop_on(["ONE CAPTION"])
    service = service_packet("ONE CAPTION")
    text = "File Format=MacCaption_MCC V%d.0\n\n" % version + COMMENT + "\n"
    text += "UUID=6B6F1A2C-0001-4D5E-9A3B-%012d\n" % nominal
    text += "Creation Program=make_samples.py\nCreation Date=Friday, November 20, 2026\nCreation Time=12:00:00\n"
    text += "Time Code Rate=" + rate + "\n\n"
    for picture in range(2 * nominal):
        triplets = []
        for field in range(picture * 60 // nominal, (picture + 1) * 60 // nominal):
            word = 0x8080
            if field % 2 == 0 and words:
                word = words.pop(0)
            triplets.append((0xFC | field % 2, word >> 8, word & 255))
        while len(triplets) < count:
            triplets.append(service.pop(0) if service else (0xFA, 0, 0))
        packet = cdp(code, picture, triplets)
        anc = bytes([0x61, 0x01, len(packet)]) + packet
        anc += bytes([sum(anc) & 255])
        text += "00:00:%02d:%02d%s\t%s\n" % (picture // nominal, picture % nominal, place, shorten(anc))
    write(name, text)


scc("two_captions_drop_frame.scc", ";")
scc("two_captions_non_drop.scc", ":")
mcc("one_caption_24.mcc", "24", 1, 25, 1)
mcc("one_caption_25.mcc", "25", 3, 24, 1)
mcc("one_caption_30df.mcc", "30DF", 4, 20, 1)
mcc("one_caption_50.mcc", "50", 6, 12, 1)
mcc("one_caption_60df_v2.mcc", "60DF", 7, 10, 2, ".0,9")
