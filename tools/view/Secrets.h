#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace view {

// Who may come in: the token of the printed address is exchanged for a session, which the browser
// keeps as a cookie. Sessions follow from the token, so that pages stay in when the program has
// been started again with the same one.
class Secrets {
 public:
  enum class Access { kFull, kViewOnly };

  // Takes the token from the file, which is written with a new one when it is not there; without a
  // path the token is new each time. Throws std::runtime_error.
  explicit Secrets(const std::string& tokenFile);

  const std::string& token() const { return token_; }
  // Lets in to look only.
  const std::string& viewToken() const { return viewToken_; }

  // The session that a token opens, or nothing when it is wrong.
  std::optional<std::string> open(std::string_view token) const;
  std::optional<Access> find(std::string_view session) const;

 private:
  std::string derive(const char* purpose) const;

  std::string token_, viewToken_;
  std::string session_, viewSession_;
};

}  // namespace view
