// inspect, check and captions on several files and folders: one result a file, in order, read by other
// programs.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>

#include "qlnmedia/media/caption_media.h"

namespace qln::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr char kClip[] =
    "ffmpeg -v error -y -f lavfi -i testsrc2=s=160x112:r=25:d=0.4 -c:v libx264 -preset ultrafast -threads 1 "
    "{out}";

// A name that must stand in quotes in tables.
std::string Good() {
  const std::string path = MediaPath("many, \"good\".mp4");
  fs::copy_file(MediaFile("many.mp4", kClip), path, fs::copy_options::overwrite_existing);
  return path;
}
std::string Ts() { return MediaFile("many.ts", kClip); }
std::string Sound() {
  return MediaFile("sound.m4a", "ffmpeg -v error -y -f lavfi -i sine=d=0.2 -c:a aac {out}");
}

// The samples say another colour than the container.
std::string Wrong() {
  return MediaFile(
      "many-wrong.mp4",
      "ffmpeg -v error -y -f lavfi -i testsrc2=s=160x112:r=25:d=0.4 -c:v libx264 -preset ultrafast "
      "-threads 1 -bsf:v h264_metadata=colour_primaries=9 -color_primaries 1 -color_trc 1 "
      "-colorspace 1 {out}");
}

std::string Empty() { return Write("many-empty.mp4", ""); }
std::string Words() {
  return Write("many-words.mp4", "These are words and no media at all, none of them.\n");
}

std::string Quoted(std::initializer_list<std::string> paths) {
  std::string text;
  for (const std::string& path : paths) text += " '" + path + "'";
  return text;
}

// Files in order, the last of them failing each in its way.
std::string All() { return Quoted({Good(), Wrong(), Sound(), "/no/such.mp4", Empty(), Words(), Ts()}); }

// What a folder has a link to is read as well, wherever it stands.
TEST(ManyFiles, LinksInFoldersAreFollowed) {
  const std::string folder = MediaPath("links");
  fs::remove_all(folder);
  fs::create_directories(folder);
  fs::create_symlink(Ts(), folder + "/elsewhere.ts");
  for (const char* command : {"check", "inspect"}) {
    const CommandResult run = Qlnmedia(std::string(command) + " --recursive '" + folder + "'");
    EXPECT_EQ(run.exitCode, 0) << run.output;
    EXPECT_THAT(run.output, HasSubstr("elsewhere.ts"));
  }
}

TEST(ManyFiles, JsonLinesComeInOrderWithTheirStatus) {
  const std::string paths = Good() + "\n" + Wrong() + "\n" + Sound() + "\n/no/such.mp4\n" + Empty() + "\n" +
                            Words() + "\n" + Ts() + "\n";
  for (const char* jobs : {"1", "4"}) {
    const std::string out = MediaPath("many.jsonl");
    const CommandResult run =
        Qlnmedia("check --json --jobs " + std::string(jobs) + All() + " > '" + out + "' 2>/dev/null");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(Text("jq -r .file '" + out + "'"), paths);
    EXPECT_EQ(Text("jq .status '" + out + "'"), "0\n3\n4\n1\n4\n1\n0\n");
    EXPECT_EQ(Text("jq -c 'select(.status == 0) | .findings' '" + out + "'"), "[]\n[]\n");
    EXPECT_EQ(Text("jq -r 'select(.status == 3) | .findings[0].what' '" + out + "'"), "colour\n");
    EXPECT_THAT(Text("jq -r 'select(.status == 4) | .error' '" + out + "'"),
                HasSubstr("has no video stream"));
  }
}

TEST(ManyFiles, OneFileKeepsItsForm) {
  EXPECT_EQ(Qlnmedia("check --json" + Quoted({Good()})).output, "{\n  \"findings\": []\n}\n");
  EXPECT_EQ(Qlnmedia("check" + Quoted({Good()})).output, "nothing found\n");
}

TEST(ManyFiles, ReportsAreLinesToo) {
  const std::string out = MediaPath("many-reports.jsonl");
  EXPECT_EQ(Qlnmedia("inspect --json" + Quoted({Good(), Ts()}) + " > '" + out + "'").exitCode, 0);
  EXPECT_EQ(Text("jq -r .summary.format '" + out + "'"), "mov,mp4,m4a,3gp,3g2,mj2\nmpegts\n");
  EXPECT_EQ(Text("jq '.streams[0].frames | length' '" + out + "'"), "3\n3\n");
}

// Python's reader of CSV takes quotes, commas and line ends in cells as they were.
TEST(ManyFiles, TablesAreReadByAnotherProgram) {
  const std::string out = MediaPath("many.csv");
  const auto read = [&out](const std::string& columns) {
    return Text("python3 -c \"import csv; [print(*(row[c] for c in '" + columns +
                "'.split()), sep='|') for row in csv.DictReader(open('" + out +
                "', newline=''), strict=True)]\"");
  };
  EXPECT_EQ(
      Qlnmedia("check --csv" + Quoted({Good(), Wrong(), Sound()}) + " > '" + out + "' 2>/dev/null").exitCode,
      3);
  const std::string rows = read("file status what severity");
  EXPECT_THAT(rows, HasSubstr(Good() + "|0||\n" + Wrong() + "|3|colour|warning\n"));
  EXPECT_THAT(rows, HasSubstr(Sound() + "|4||\n"));
  EXPECT_EQ(
      Qlnmedia("inspect --csv" + Quoted({Good(), Ts(), Words()}) + " > '" + out + "' 2>/dev/null").exitCode,
      1);
  EXPECT_EQ(read("file status stream codec width frame_rate findings"),
            Good() + "|0|0|h264|160|25/1|0\n" + Ts() + "|0|0|h264|160|25/1|0\n" + Words() + "|1|||||\n");
  const Bytes bytes = ReadFile(out);
  EXPECT_THAT(std::string(bytes.begin(), bytes.end()), testing::EndsWith("\r\n"));
}

// The first of failure, findings and not applicable counts.
TEST(ManyFiles, StatusesCombine) {
  struct {
    std::string files;
    int status;
  } const cases[] = {{Quoted({Good(), Ts()}), 0},
                     {Quoted({Good(), Sound()}), 4},
                     {Quoted({Sound(), Wrong()}), 3},
                     {Quoted({Wrong(), Sound(), Words()}), 1}};
  for (const auto& [files, status] : cases) EXPECT_EQ(Qlnmedia("check" + files).exitCode, status) << files;
}

TEST(ManyFiles, FoldersAreGoneThroughByName) {
  const fs::path folder = MediaPath("many-folder");
  fs::remove_all(folder);
  fs::create_directories(folder / "b");
  fs::create_directories(folder / ".hidden");
  fs::copy_file(Ts(), folder / "b" / "one.TS");
  fs::copy_file(Ts(), folder / "c.ts");
  fs::copy_file(Ts(), folder / "a.ts");
  fs::copy_file(Ts(), folder / "notes.txt");
  fs::copy_file(Ts(), folder / ".hidden" / "x.ts");
  fs::create_directory_symlink(folder, folder / "b" / "back");
  const std::string root = folder.string();
  const CommandResult plain = Qlnmedia("check '" + root + "'");
  EXPECT_EQ(plain.exitCode, 1);
  EXPECT_THAT(plain.output, HasSubstr("is a directory"));
  EXPECT_EQ(Qlnmedia("check --recursive '" + root + "'").output, root + "/a.ts:\nnothing found\n" + root +
                                                                     "/b/one.TS:\nnothing found\n" + root +
                                                                     "/c.ts:\nnothing found\n");
  const CommandResult none = Qlnmedia("check --recursive '" + root + "/.hidden/..' '" + root + "/none'");
  EXPECT_EQ(none.exitCode, 1);
  fs::create_directories(folder / "empty");
  const CommandResult empty = Qlnmedia("inspect --recursive '" + root + "/empty'");
  EXPECT_EQ(empty.exitCode, 4);
  EXPECT_THAT(empty.output, HasSubstr("holds no media files"));
}

TEST(ManyFiles, CaptionsGoIntoAFolder) {
  const std::string scc = Write("many.scc", kScc);
  const std::string one = MediaPath("many-cc.ts");
  const std::string two = MediaPath("many-cc.mp4");
  for (const auto& [in, out] : {std::pair{Ts(), one}, std::pair{Good(), two}})
    ASSERT_EQ(Qlnmedia("patch '" + in + "' '" + out + "' --captions '" + scc + "'").exitCode, 0);
  const fs::path folder = MediaPath("many-captions");
  fs::remove_all(folder);
  fs::create_directories(folder);
  const std::string to = " -o '" + folder.string() + "'";
  // Both would be many-cc.mcc.
  const CommandResult clash = Qlnmedia("captions --form mcc" + to + Quoted({one, two}));
  EXPECT_EQ(clash.exitCode, 1);
  EXPECT_TRUE(fs::is_empty(folder));
  EXPECT_EQ(Qlnmedia("captions --form mcc" + to + Quoted({one, Good()})).exitCode, 4);
  EXPECT_TRUE(fs::exists(folder / "many-cc.mcc"));
  EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 1);
  EXPECT_EQ(Qlnmedia("captions --form mcc" + to + Quoted({two})).exitCode, 0);
  EXPECT_EQ(Qlnmedia("captions -o '" + MediaPath("many-none") + "'" + Quoted({one, two})).exitCode, 1);
  const std::string out = MediaPath("many-captions.jsonl");
  EXPECT_EQ(Qlnmedia("captions --json" + Quoted({one, two}) + " > '" + out + "'").exitCode, 0);
  EXPECT_EQ(Text("jq '.captioned' '" + out + "'"), "10\n10\n");
}

// However many files there are still to do: the prompt is back within 0.3 s.
TEST(ManyFiles, AreCalledOffAtOnce) {
  const std::string folder = MediaPath("many-called-off");
  fs::remove_all(folder);
  fs::create_directories(folder);
  const std::string in = Ts();
  for (const std::string command : {"check", "inspect", "captions"}) {
    std::vector<std::string> words = {"qlnmedia", command, "--jobs", "3"};
    if (command == "captions") words.insert(words.end(), {"--form", "mcc", "-o", folder, "--force"});
    for (int i = 0; i < 400; ++i) {
      const std::string path = folder + "/" + std::to_string(i) + ".ts";
      if (!fs::exists(path)) fs::create_symlink(in, path);
      words.push_back(path);
    }
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      std::signal(SIGINT, SIG_DFL);  // whoever started the tests may ignore it
      dup2(ends[1], STDOUT_FILENO);
      dup2(ends[1], STDERR_FILENO);
      close(ends[0]);
      close(ends[1]);
      execv(QLNMEDIA_PROGRAM, arguments.data());
      _exit(127);
    }
    close(ends[1]);
    // The first result is there.
    char byte = 0;
    EXPECT_EQ(read(ends[0], &byte, 1), 1);
    const auto begin = std::chrono::steady_clock::now();
    kill(child, SIGINT);
    int status = 0;
    waitpid(child, &status, 0);
    close(ends[0]);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << command << " " << status;
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(300)) << command;
  }
}

}  // namespace
}  // namespace qln::test
