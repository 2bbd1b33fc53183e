#include <algorithm>
#include <set>

#include "mp4/list_file.h"

namespace qln::test::mp4 {

namespace {

// Bytes of a media data box that belong to no sample.
Bytes Gaps(const Bytes& file, const Listing& listing, const Node& mdat) {
  std::vector<std::pair<size_t, size_t>> used;
  for (const auto& [track, samples] : listing.samples) {
    for (const ListedSample& sample : samples) used.emplace_back(sample.at, sample.at + sample.data.size());
  }
  std::sort(used.begin(), used.end());
  Bytes out;
  size_t at = mdat.at + mdat.head;
  const size_t end = mdat.at + mdat.size;
  const auto add = [&](size_t to) {
    for (; at < std::min(to, end); ++at) out.push_back(file[at]);
  };
  for (const auto& [from, to] : used) {
    if (to <= at || from >= end) continue;
    add(from);
    at = std::max(at, to);
  }
  add(end);
  return out;
}

std::string CompareSamples(const Listing& in, const Listing& out, uint32_t trackId,
                           const std::vector<Bytes>& fresh) {
  if (in.samples.size() != out.samples.size()) return "other tracks";
  for (const auto& [id, samples] : in.samples) {
    const auto found = out.samples.find(id);
    if (found == out.samples.end() || found->second.size() != samples.size())
      return "another number of samples in track " + std::to_string(id);
    for (size_t i = 0; i < samples.size(); ++i) {
      const ListedSample& a = samples[i];
      const ListedSample& b = found->second[i];
      const std::string name = "sample " + std::to_string(i) + " of track " + std::to_string(id);
      if (a.decodeTime != b.decodeTime || a.compositionTime != b.compositionTime || a.duration != b.duration)
        return name + ": times";
      if (a.flags != b.flags || a.description != b.description) return name + ": flags or description";
      if (b.data != (id == trackId && i < fresh.size() ? fresh[i] : a.data)) return name + ": bytes";
    }
  }
  return {};
}

}  // namespace

std::string Compare(const Bytes& input, const Bytes& output, uint32_t trackId,
                    const std::vector<Bytes>& fresh, const Bytes& init) {
  // What may be other than it was, and is held against samples and marks instead.
  static const std::set<std::string> kMoving = {"stsz", "stz2", "stco", "co64", "trun",
                                                "tfhd", "sidx", "tfra", "mfro", "saio",
                                                "iloc", "ssix", "btrt", "subs", "meta"};
  const auto same = [](const std::string& a, const std::string& b) {
    return a == b || (a == "stco" && b == "co64") || (a == "stz2" && b == "stsz");
  };
  Listing in;
  Listing out;
  try {
    in = ListFile(input, init);
    out = ListFile(output, init);
  } catch (const std::exception& error) {
    return error.what();
  }
  const std::string samples = CompareSamples(in, out, trackId, fresh);
  if (!samples.empty()) return samples;
  if (in.marks != out.marks) return "an index names another place";
  if (in.boxes.size() != out.boxes.size()) return "other boxes";
  for (size_t i = 0; i < in.boxes.size(); ++i) {
    const Node& a = in.boxes[i];
    const Node& b = out.boxes[i];
    if (!same(a.type, b.type)) return "box " + a.path + " became " + b.path;
    if (a.toEnd != b.toEnd) return "box " + a.path + " is no longer the open end";
    if (a.container) {
      if (!std::equal(input.begin() + static_cast<std::ptrdiff_t>(a.at + a.head),
                      input.begin() + static_cast<std::ptrdiff_t>(a.at + a.head + a.fields),
                      output.begin() + static_cast<std::ptrdiff_t>(b.at + b.head))) {
        return "the fields of " + a.path;
      }
    } else if (a.type == "mdat") {
      if (Gaps(input, in, a) != Gaps(output, out, b)) return "bytes between samples in " + a.path;
    } else if (kMoving.count(a.type) == 0) {
      if (!std::equal(input.begin() + static_cast<std::ptrdiff_t>(a.at),
                      input.begin() + static_cast<std::ptrdiff_t>(a.at + a.size),
                      output.begin() + static_cast<std::ptrdiff_t>(b.at),
                      output.begin() + static_cast<std::ptrdiff_t>(b.at + b.size))) {
        return "the bytes of " + a.path;
      }
    }
  }
  return {};
}

}  // namespace qln::test::mp4
