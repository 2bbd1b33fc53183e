#include <algorithm>
#include <set>

#include "mp4/list_places.h"

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

std::string CompareSamples(const Listing& in, const Listing& out, const FreshSamples& fresh) {
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
      const auto changed = fresh.find(id);
      const bool other = changed != fresh.end() && i < changed->second.size();
      if (b.data != (other ? changed->second[i] : a.data)) return name + ": bytes";
    }
  }
  return {};
}

std::string ComparePlaces(const Bytes& input, const Listing& in, const Places& was, const Bytes& output,
                          const Listing& out, const Places& is) {
  if (was.places.size() != is.places.size()) return "boxes name another number of places";
  const PlaceMap map(input, in, output, out);
  for (size_t i = 0; i < was.places.size(); ++i) {
    const Place& a = was.places[i];
    const Place& b = is.places[i];
    if (a.name != b.name || a.rest != b.rest) return a.name + " says something else";
    const bool place = a.rest.empty() || a.name.rfind("item", 0) != 0;
    if (place && (!map.Is(a.begin, b.begin) || !map.Is(a.end, b.end)))
      return a.name + " names other bytes: " + std::to_string(a.begin) + "-" + std::to_string(a.end) +
             " became " + std::to_string(b.begin) + "-" + std::to_string(b.end);
  }
  return {};
}

// A box's bytes with the fields that hold places as zeros.
Bytes Masked(const Bytes& file, const Node& node, const Places& places) {
  Bytes out(file.begin() + static_cast<std::ptrdiff_t>(node.at),
            file.begin() + static_cast<std::ptrdiff_t>(node.at + node.size));
  for (const PlaceField& field : places.fields) {
    if (field.at < node.at || field.at + field.bytes > node.at + node.size) continue;
    std::fill_n(out.begin() + static_cast<std::ptrdiff_t>(field.at - node.at), field.bytes, uint8_t{0});
  }
  return out;
}

}  // namespace

std::string Compare(const Bytes& input, const Bytes& output, uint32_t trackId,
                    const std::vector<Bytes>& fresh, const Bytes& init) {
  return Compare(input, output, FreshSamples{{trackId, fresh}}, init, false);
}

std::string Compare(const Bytes& input, const Bytes& output, const FreshSamples& fresh, const Bytes& init,
                    bool facts) {
  // What may be other than it was, and is held against samples and marks instead.
  static const std::set<std::string> kMoving = {"stsz", "stz2", "stco", "co64", "trun", "btrt"};
  // These are as they were but for their places. default_sample_size of tfhd is seen by the samples.
  static const std::set<std::string> kNaming = {"sidx", "ssix", "tfra", "mfro", "saio",
                                                "subs", "meta", "udta", "meco"};
  const auto same = [](const std::string& a, const std::string& b) {
    return a == b || (a == "stco" && b == "co64") || (a == "stz2" && b == "stsz");
  };
  Listing in;
  Listing out;
  Places was;
  Places is;
  try {
    in = ListFile(input, init);
    out = ListFile(output, init);
    was = ListPlaces(input, in);
    is = ListPlaces(output, out);
  } catch (const std::exception& error) {
    return error.what();
  }
  const std::string samples = CompareSamples(in, out, fresh);
  if (!samples.empty()) return samples;
  if (facts) {
    for (Listing* listing : {&in, &out}) {
      std::erase_if(listing->boxes, [](const Node& node) {
        const size_t at = node.path.find("/stsd/");
        return at != std::string::npos && node.path.find('/', at + 6) != std::string::npos;
      });
    }
  }
  if (in.marks != out.marks) return "an index names another place";
  if (in.boxes.size() != out.boxes.size()) return "other boxes";
  const std::string places = ComparePlaces(input, in, was, output, out, is);
  if (!places.empty()) return places;
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
    } else if (kNaming.count(a.type) != 0) {
      // A wider form is seen by what it names.
      if (a.size == b.size && Masked(input, a, was) != Masked(output, b, is)) return "the bytes of " + a.path;
      if (a.size != b.size && a.type != "saio" && a.type != "tfra") return "the size of " + a.path;
    } else if (a.type == "tfhd") {
      if (a.size != b.size) return "the size of " + a.path;
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
