#!/usr/bin/env python3
"""Whole and cut last pictures of raw streams: scripts/check_ends.py [QLNMEDIA] [FOLDER]

Makes H.264 and HEVC streams of many kinds (x264, x265, and streams of PCM macroblocks put together here), ends each
behind every one of its pictures, and asks `check` about it: none may be blamed for an early end. Then cuts pictures in
the middle and counts how many of the cuts are found. Fails where a whole end is blamed, where fewer than 200 ends of
H.264 were tried, or where a cut that the documentation promises to find is not.
"""
import pathlib
import subprocess
import sys
import tempfile

SIZE = (96, 80)
PICTURES = 10


def run(command, data=None):
    return subprocess.run(command, input=data, stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=60, check=False)


def raw_video(kind, count=PICTURES):
    """Planar 4:2:0 pictures: moving, or all the same."""
    source = {'moving': 'testsrc2', 'still': 'color=c=gray', 'noise': 'nullsrc'}[kind]
    separator = ':' if '=' in source else '='
    graph = f'{source}{separator}s={SIZE[0]}x{SIZE[1]}:r=25'
    if kind == 'noise':
        graph += ',geq=random(1)*255:128:128'
    return run(['ffmpeg', '-v', 'error', '-f', 'lavfi', '-i', graph, '-frames:v', str(count), '-pix_fmt', 'yuv420p',
                '-f', 'rawvideo', '-']).stdout


def x264(video, options, folder):
    path = folder / 'one.264'
    path.unlink(missing_ok=True)
    result = run(['x264', '--quiet', '--demuxer', 'raw', '--muxer', 'raw', '--threads', '1', '--input-res',
                  f'{SIZE[0]}x{SIZE[1]}', '--fps', '25', '--output', str(path)] + options.split() + ['-'], video)
    if result.returncode != 0:
        sys.exit(f'x264 {options}: {result.stderr.decode()}')
    return path.read_bytes()


def x265(video, options, folder):
    path = folder / 'one.265'
    source = folder / 'one.yuv'
    source.write_bytes(video)
    path.unlink(missing_ok=True)
    result = run(['x265', '--log-level', 'none', '--no-progress', '--pools', '1', '--frame-threads', '1', '--input',
                  str(source), '--input-res', f'{SIZE[0]}x{SIZE[1]}', '--fps', '25', '-o', str(path)] +
                 options.split())
    if result.returncode != 0:
        sys.exit(f'x265 {options}: {result.stderr.decode()}')
    return path.read_bytes()


# Streams put together bit by bit: every macroblock is I_PCM (ITU-T H.264 clause 7.3).

class Bits:
    def __init__(self):
        self.text = ''

    def u(self, count, value):
        self.text += format(value, f'0{count}b') if count else ''
        return self

    def ue(self, value):
        code = format(value + 1, 'b')
        self.text += '0' * (len(code) - 1) + code
        return self

    def se(self, value):
        return self.ue(2 * value - 1 if value > 0 else -2 * value)

    def align(self):
        self.text += '0' * (-len(self.text) % 8)
        return self

    def raw(self, data):
        self.text += ''.join(format(byte, '08b') for byte in data)
        return self

    def unit(self, header):
        bits = self.text + '1'
        bits += '0' * (-len(bits) % 8)
        payload = int(bits, 2).to_bytes(len(bits) // 8, 'big')
        out = bytearray([0, 0, 0, 1, header])
        zeros = 0
        for byte in payload:
            if zeros >= 2 and byte <= 3:
                out.append(3)
                zeros = 0
            zeros = zeros + 1 if byte == 0 else 0
            out.append(byte)
        return bytes(out)


MB_WIDTH, MB_HEIGHT = 4, 4


def pcm_sps(frames_only, gaps=0):
    bits = Bits().u(8, 66 if frames_only else 77).u(8, 0).u(8, 30).ue(0)
    bits.ue(0).ue(0).ue(0).ue(1).u(1, gaps)  # frame_num of 4 bits, order counts of 4, one reference
    bits.ue(MB_WIDTH - 1).ue((MB_HEIGHT if frames_only else MB_HEIGHT // 2) - 1).u(1, frames_only)
    if not frames_only:
        bits.u(1, 0)
    return bits.u(1, 1).u(1, 0).u(1, 0).unit(0x67)  # direct_8x8_inference_flag, no cropping, no VUI


def pcm_pps(groups=None, redundant=0):
    bits = Bits().ue(0).ue(0).u(1, 0).u(1, 0)
    if groups is None:
        bits.ue(0)
    else:
        bits.ue(1).ue(groups)
        if groups == 0:
            bits.ue(1).ue(2)  # runs of 2 and 3
        elif groups == 2:
            bits.ue(5).ue(10)  # a rectangle in front
    bits.ue(0).ue(0).u(1, 0).u(2, 0).se(0).se(0).se(0)
    return bits.u(1, 0).u(1, 0).u(1, redundant).unit(0x68)


def group_map(groups):
    total = MB_WIDTH * MB_HEIGHT
    if groups is None:
        return [0] * total
    if groups == 0:
        return [0 if i % 5 < 2 else 1 for i in range(total)]
    if groups == 1:  # ITU-T H.264 clause 8.2.2.2
        return [(i % MB_WIDTH + (i // MB_WIDTH * 2) // 2) % 2 for i in range(total)]
    inside = {y * MB_WIDTH + x for y in (1, 2) for x in (1, 2)}
    return [0 if i in inside else 1 for i in range(total)]


def pcm_slice(first, macroblocks, number, idr, field=None, frames_only=True, shade=60):
    bits = Bits().ue(first).ue(7 if macroblocks else 5).ue(0).u(4, number % 16)
    if not frames_only:
        bits.u(1, field is not None)
        if field is not None:
            bits.u(1, field)
    if idr:
        bits.ue(0)
    bits.u(4, (2 * number + (field or 0)) % 16)  # pic_order_cnt_lsb
    if not macroblocks:
        bits.u(1, 0).u(1, 0)  # of a P slice: no override, no modification
    bits.u(2, 0) if idr else bits.u(1, 0)
    bits.se(0)
    for index in range(macroblocks):
        bits.ue(25).align().raw(bytes([shade + index]) * 256 + b'\x80' * 128)
    return bits


def skipped(first, count, number, frames_only=True):
    """A P slice of skipped macroblocks: some bytes in all."""
    return pcm_slice(first, 0, number, False, None, frames_only).ue(count).unit(0x41)


def pcm_pictures(groups=None, slices=1, fields=False, skips=False, reverse=False):
    pictures = []
    for number in range(8):
        idr = number == 0
        header = 0x65 if idr else 0x61
        units = []
        if fields:
            for field in (0, 1):
                own = idr and field == 0
                units.append(pcm_slice(0, MB_WIDTH * MB_HEIGHT // 2, number, own, field, False,
                                       60 + number).unit(0x65 if own else 0x61))
        elif skips and not idr:
            units.append(skipped(0, MB_WIDTH * MB_HEIGHT, number))
        elif groups is not None:
            where = group_map(groups)
            for group in (0, 1):
                units.append(pcm_slice(where.index(group), where.count(group), number, idr).unit(header))
        else:
            total = MB_WIDTH * MB_HEIGHT
            step = total // slices
            for first in range(0, total, step):
                units.append(pcm_slice(first, step, number, idr).unit(header))
        if reverse:
            units.reverse()
        head = b''
        if idr:
            head = pcm_sps(not fields) + pcm_pps(groups)
        pictures.append((head, units))
    return pictures


def units_of(stream):
    """(place of the start code, place of the unit) of each unit."""
    places = []
    at = stream.find(b'\0\0\1')
    while at >= 0:
        places.append((at - 1 if at > 0 and stream[at - 1] == 0 else at, at + 3))
        at = stream.find(b'\0\0\1', at + 3)
    return places


def is_slice(stream, unit, hevc):
    kind = stream[unit] >> 1 & 63 if hevc else stream[unit] & 31
    return kind < 32 if hevc else kind in (1, 5)


def pictures_of(stream, hevc):
    """Each picture as (what stands in front of its slices, its slices)."""
    places = units_of(stream)
    pictures, front, slices = [], b'', []
    for index, (code, unit) in enumerate(places):
        end = places[index + 1][0] if index + 1 < len(places) else len(stream)
        data = stream[code:end]
        kind = stream[unit] >> 1 & 63 if hevc else stream[unit] & 31
        if slices and kind in ((36, 37, 38, 40) if hevc else (10, 11, 12)):  # belong to the picture in front
            slices.append(data)
            continue
        if not is_slice(stream, unit, hevc):
            if slices:
                pictures.append((front, slices))
                front, slices = b'', []
            front += data
            continue
        first = stream[unit + (2 if hevc else 1)] & 0x80
        if first and slices:
            pictures.append((front, slices))
            front, slices = b'', []
        slices.append(data)
    pictures.append((front, slices))
    return pictures


def joined(pictures):
    return b''.join(front + b''.join(slices) for front, slices in pictures)


def without(pictures, lost):
    """The same without some pictures, whose sets stay."""
    kept, front = [], b''
    for index, (head, slices) in enumerate(pictures):
        if index in lost:
            front += head
            continue
        kept.append((front + head, slices))
        front = b''
    return kept


def h264_kinds(folder):
    videos = {kind: raw_video(kind) for kind in ('moving', 'still', 'noise')}
    kinds = {}
    for coder in ('', '--no-cabac'):
        word = 'cavlc' if coder else 'cabac'
        common = f'{coder} --preset ultrafast' if coder else '--preset superfast'
        for bframes in ('--bframes 0', '--bframes 3 --b-pyramid normal --b-adapt 0'):
            for weights in ('--weightp 0', '--weightp 2'):
                for slices in ('', '--slices 3'):
                    options = f'{common} {bframes} {weights} {slices} --ref 3'
                    kinds[f'{word} {bframes} {weights} {slices}'] = ('moving', options)
        kinds[f'{word} refresh'] = ('moving', f'{common} --intra-refresh --keyint 6')
        kinds[f'{word} mbaff'] = ('moving', f'{common} --tff --ref 3')
        kinds[f'{word} mbaff slices'] = ('moving', f'{common} --bff --slices 2')
        kinds[f'{word} small slices'] = ('noise', f'{common} --slice-max-size 400')
        kinds[f'{word} still'] = ('still', f'{common} --bframes 0')
        kinds[f'{word} still B'] = ('still', f'{common} --bframes 3 --b-adapt 0')
        kinds[f'{word} noise'] = ('noise', f'{common} --ref 4')
        kinds[f'{word} lossless'] = ('moving', f'{common} --qp 0')
        kinds[f'{word} coarse'] = ('moving', f'{common} --qp 51')
        kinds[f'{word} open'] = ('moving', f'{common} --open-gop --keyint 4 --bframes 2 --b-adapt 0')
        kinds[f'{word} intra'] = ('moving', f'{common} --keyint 1')
    kinds['baseline'] = ('moving', '--profile baseline --ref 3')
    kinds['baseline slices'] = ('moving', '--profile baseline --slices 3')
    kinds['filler'] = ('still', '--nal-hrd cbr --filler --bitrate 400 --vbv-maxrate 400 --vbv-bufsize 200')
    kinds['main 8x8'] = ('moving', '--profile high --8x8dct --ref 4 --partitions all')
    out = {name: pictures_of(x264(videos[video], options, folder), False)
           for name, (video, options) in kinds.items()}
    # Pictures that went missing on the way: gaps in frame_num, references that are not there.
    for name in [n for n in out if 'slices' not in n or n.startswith('cabac --b')]:
        if any(word in name for word in ('open', 'intra', 'lossless', 'filler')):
            continue
        out[f'{name}, second lost'] = without(out[name], {1})
        out[f'{name}, two lost'] = without(out[name], {3, 4})
        out[f'{name}, first lost'] = without(out[name], {0})
    for name, options in {'plain': {}, 'slices': {'slices': 4}, 'fields': {'fields': True},
                          'skipped': {'skips': True}, 'interleaved groups': {'groups': 0},
                          'dispersed groups': {'groups': 1}, 'foreground group': {'groups': 2},
                          'any order': {'slices': 4, 'reverse': True},
                          'groups in any order': {'groups': 2, 'reverse': True}}.items():
        pictures = pcm_pictures(**options)
        out[f'PCM {name}'] = pictures
        out[f'PCM {name}, two lost'] = without(pictures, {2, 3})
    return out


def hevc_kinds(folder):
    video = raw_video('moving')
    kinds = {'plain': '', 'no B': '--bframes 0', 'open': '--open-gop --keyint 4 --bframes 2', 'intra': '--keyint 1',
             'references': '--ref 4 --bframes 4 --b-pyramid', 'hash': '--hash 1', 'fields': '--interlace tff',
             'layers': '--temporal-layers --bframes 3', 'coarse': '--qp 51', 'lossless': '--cu-lossless --lossless'}
    out = {name: pictures_of(x265(video, '--preset ultrafast ' + options, folder), True)
           for name, options in kinds.items()}
    for name in ('plain', 'no B', 'references'):
        out[f'{name}, two lost'] = without(out[name], {3, 4})
    return out


class Asked:
    def __init__(self, program, folder):
        self.program, self.folder = program, folder

    def says_early(self, stream, hevc):
        path = self.folder / ('end.hevc' if hevc else 'end.h264')
        path.write_bytes(stream)
        result = run([self.program, 'check', str(path)])
        if result.returncode == 1 and b'no media that can be read' in result.stderr:
            return False  # too little for anybody to tell what it is
        if result.returncode not in (0, 3):
            sys.exit(f'{path}: {result.stderr.decode()}')
        return 'ends early' in result.stdout.decode()


# What the decoder at hand does not take alone is not judged: slice groups, slices in any order, single fields. Nor is a
# picture of some bytes in all, which has no middle.
def is_promised(name):
    return not any(word in name for word in ('group', 'any order', 'baseline slices', 'skipped', 'PCM slices', 'PCM fields'))


def try_ends(asked, name, pictures, hevc):
    tried = blamed = 0
    for count in range(2, len(pictures) + 1):
        stream = joined(pictures[:count])
        tried += 1
        if asked.says_early(stream, hevc):
            blamed += 1
            print(f'blamed: {name}, whole behind picture {count}')
    return tried, blamed


def try_cuts(asked, name, pictures, hevc, behind=b''):
    tried = found = 0
    for count in (len(pictures) // 2, len(pictures) - 1):
        front, slices = pictures[count]
        last = slices[-1]
        if len(last) < 60:
            continue
        stream = joined(pictures[:count]) + front + b''.join(slices[:-1]) + last[:len(last) // 2] + behind
        tried += 1
        if asked.says_early(stream, hevc):
            found += 1
        elif is_promised(name):
            print(f'not found: {name}, cut in picture {count + 1}')
    return tried, found


def main():
    program = str(pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else 'build/release/tools/qlnmedia/qlnmedia').resolve())
    failed = False
    with tempfile.TemporaryDirectory(dir=sys.argv[2] if len(sys.argv) > 2 else None) as name:
        folder = pathlib.Path(name)
        asked = Asked(program, folder)
        for codec, kinds in (('H.264', h264_kinds(folder)), ('HEVC', hevc_kinds(folder))):
            hevc = codec == 'HEVC'
            ends = blamed = cuts = found = missed = 0
            for kind, pictures in kinds.items():
                one, other = try_ends(asked, kind, pictures, hevc)
                ends, blamed = ends + one, blamed + other
                behinds = (b'', b'\0\0\0\1\x7c\x01\x55\x66', b'\0\0\0\1\x7e\x01\x55\x66') if hevc else (b'',)
                for behind in behinds:
                    one, other = try_cuts(asked, kind, pictures, hevc, behind)
                    cuts, found = cuts + one, found + other
                    missed += one - other if is_promised(kind) else 0
            print(f'{codec}: {len(kinds)} kinds, {ends} whole ends, {blamed} blamed; {cuts} cuts, {found} found, '
                  f'{missed} of those that are promised missed')
            failed = failed or blamed != 0 or missed != 0 or (not hevc and ends < 200)
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())
