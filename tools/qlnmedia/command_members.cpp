// Walks the JSON form character by character.

#include "command_members.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>

namespace qlnmedia {

namespace {

constexpr std::string_view kBetween = " \t\r\n,";

class MemberWalk {
 public:
  explicit MemberWalk(std::string_view text) : rest_(text) {}

  std::vector<CommandMember> Take() {
    while (SkipTo(kBetween), !rest_.empty()) {
      const char c = rest_.front();
      if (c == '{' || c == '[') {
        Open();
      } else if (c == '}' || c == ']') {
        Close();
      } else if (c == ':') {
        rest_.remove_prefix(1);
      } else {
        TakeToken(c == '"' ? TextToken() : BareToken());
      }
    }
    return std::move(members_);
  }

 private:
  void SkipTo(std::string_view passed) {
    rest_.remove_prefix(std::min(rest_.find_first_not_of(passed), rest_.size()));
  }
  void Open() {
    open_.push_back(std::move(key_));
    key_.clear();
    rest_.remove_prefix(1);
  }
  void Close() {
    if (!open_.empty()) open_.pop_back();
    rest_.remove_prefix(1);
  }
  // A text with its quotes, up to the end of all where it has no second one.
  std::string TextToken() {
    size_t end = 1;
    while (end < rest_.size() && rest_[end] != '"') end += rest_[end] == '\\' ? 2 : 1;
    return Cut(end + 1);
  }
  std::string BareToken() { return Cut(rest_.find_first_of(" \t\r\n,:{}[]\"")); }
  std::string Cut(size_t size) {
    std::string token(rest_.substr(0, size));
    rest_.remove_prefix(token.size());
    return token;
  }
  // A key where a colon follows, else a value.
  void TakeToken(std::string token) {
    SkipTo(" \t\r\n");
    if (!rest_.empty() && rest_.front() == ':') {
      const size_t quotes = token.starts_with('"') && token.size() >= 2 ? 1 : 0;
      key_ = token.substr(quotes, token.size() - 2 * quotes);
      return;
    }
    if (open_.empty()) return;
    // The first is the outermost object, which has no key, the second what stands for the command.
    std::string path;
    for (size_t i = 2; i < open_.size(); ++i) path += open_[i] + ".";
    path += key_;
    // What stands in an array has no name of its own.
    path.erase(path.find_last_not_of('.') + 1);
    members_.emplace_back(std::move(path), std::move(token));
    key_.clear();
  }

  std::string_view rest_;
  std::vector<std::string> open_;  // the keys of the objects around
  std::string key_;                // that waits for its value
  std::vector<CommandMember> members_;
};

std::optional<uint32_t> NumberOf(const std::string& value) {
  int64_t number = 0;
  const char* const end = value.data() + value.size();
  const auto [stop, error] = std::from_chars(value.data(), end, number);
  if (error != std::errc() || stop != end) return {};
  return static_cast<uint32_t>(number);
}

bool SameValue(const std::string& a, const std::string& b) {
  return a == b || (NumberOf(a) && NumberOf(a) == NumberOf(b));
}

}  // namespace

std::vector<CommandMember> CommandMembers(std::string_view json) { return MemberWalk(json).Take(); }

std::vector<std::string> LostMembers(const std::vector<CommandMember>& before,
                                     const std::vector<CommandMember>& after) {
  const auto kept = [&after](const CommandMember& member) {
    return std::any_of(after.begin(), after.end(), [&](const CommandMember& other) {
      return other.first == member.first && SameValue(other.second, member.second);
    });
  };
  std::vector<std::string> lost;
  for (const CommandMember& member : before) {
    if (kept(member)) continue;
    const size_t dot = member.first.rfind('.');
    const std::string name = dot == std::string::npos ? "" : member.first.substr(dot + 1);
    if (name == "String" || name == "TcString") {
      const std::string valuePath = member.first.substr(0, dot) + ".Value";
      const auto value = std::find_if(before.begin(), before.end(),
                                      [&](const CommandMember& other) { return other.first == valuePath; });
      if (value != before.end() && kept(*value)) continue;
    }
    if (std::find(lost.begin(), lost.end(), member.first) == lost.end()) lost.push_back(member.first);
  }
  return lost;
}

}  // namespace qlnmedia
