// InspectFile as hosts call it: the tree and its JSON form say the same, and what ffprobe says.

#include "qlnmedia/inspect.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "support/media.h"
#include "support/test_support.h"

namespace qlnmedia {
namespace {

using Json = nlohmann::ordered_json;
using testing::StartsWith;

std::string Clip() {
  return qln::test::MediaFile(
      "inspected.mp4",
      "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=25:d=0.4 -f lavfi -i sine=d=0.4 "
      "-pix_fmt yuv420p -c:v libx264 -threads 1 -c:a aac {out}");
}

std::string Probed(const std::string& entry) {
  std::string value =
      qln::test::Run("ffprobe -v error -show_entries " + entry + " -of csv=p=0 '" + Clip() + "'").output;
  while (!value.empty() && (value.back() == '\n' || value.back() == ',')) value.pop_back();
  return value;
}

const ReportItem* Child(const ReportItem& item, const std::string& key) {
  for (const ReportItem& child : item.children) {
    if (child.key == key) return &child;
  }
  return nullptr;
}

// The JSON form of a tree, by what the header says of its items.
Json JsonOf(const ReportItem& item) {
  Json json = Json::object();
  for (const ReportItem& child : item.children) {
    switch (child.kind) {
      case ReportItem::Kind::kFact:
        json[child.key] = Json::parse(child.value);
        break;
      case ReportItem::Kind::kSection:
        if (child.inList) {
          json[child.key].push_back(JsonOf(child));
        } else {
          json[child.key] = JsonOf(child);
        }
        break;
      case ReportItem::Kind::kTable: {
        Json& rows = json[child.key] = Json::array();
        for (const ReportItem& row : child.children) {
          EXPECT_EQ(row.kind, ReportItem::Kind::kRow);
          rows.push_back(JsonOf(row));
        }
        break;
      }
      case ReportItem::Kind::kElements:
        json[child.key] = Json::object();
        for (const ReportItem& element : child.children) {
          json[child.key][element.key] = Json::parse(element.value);
          if (!element.note.empty()) json[child.key + "_notes"][element.key] = element.note;
        }
        break;
      case ReportItem::Kind::kLine:
        EXPECT_EQ(child.key, "");
        break;
      case ReportItem::Kind::kNote:
        json["notes"].push_back(child.text);
        break;
      default:
        ADD_FAILURE() << "an item of a kind that stands elsewhere";
    }
  }
  return json;
}

TEST(InspectFile, TreeAndJsonSayTheSame) {
  const Report report = InspectFile(Clip(), {.frames = 4, .units = true});
  EXPECT_EQ(JsonOf(report.root()), Json::parse(report.ToJson()));
  EXPECT_EQ(Json::parse(report.ToJson(-1)), Json::parse(report.ToJson()));
  EXPECT_EQ(report.ToJson(-1).find('\n'), std::string::npos);
}

TEST(InspectFile, SaysWhatAnotherReaderSays) {
  const Report report = InspectFile(Clip());
  const Json json = Json::parse(report.ToJson());
  EXPECT_EQ(json["container"]["path"], Clip());
  EXPECT_THAT(Probed("format=format_name"),
              testing::HasSubstr(json["container"]["format"].get<std::string>()));
  EXPECT_EQ(std::to_string(json["streams"].size()), Probed("format=nb_streams"));
  const ReportItem* const stream = Child(report.root(), "streams");
  ASSERT_NE(stream, nullptr);
  EXPECT_TRUE(stream->inList);
}

TEST(InspectFile, CopiesShareWhatTheyHold) {
  const Report first = InspectFile(Clip());
  const Report second = first;
  EXPECT_EQ(&first.root(), &second.root());
}

TEST(InspectFile, RefusesWhatItCannotRead) {
  const auto refusal = [](const std::string& path) {
    try {
      InspectFile(path);
    } catch (const Error& error) {
      return std::string(error.what());
    }
    return std::string("none");
  };
  EXPECT_THAT(refusal("/no/such/file"), StartsWith("/no/such/file: "));
  const std::string sound =
      qln::test::MediaFile("sound.m4a", "ffmpeg -v error -y -f lavfi -i sine=d=0.2 -c:a aac {out}");
  EXPECT_EQ(refusal(sound), sound + ": has no video stream");
}

}  // namespace
}  // namespace qlnmedia
