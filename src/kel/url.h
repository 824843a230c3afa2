#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kel {

/// No URL is longer.
inline constexpr size_t kMaxUrlBytes = 65536;

/// A URL taken apart by the transfer library, so that both see the same parts.
class Url {
 public:
  enum class Part { Scheme, User, Password, Host, Port, Path, Query };

  static std::optional<Url> Parse(std::string_view text);
  Url(Url&& other) noexcept;
  Url& operator=(Url&&) = delete;
  ~Url();

  /// A part with its "%" sequences decoded or not; "" when it is absent or holds control bytes.
  std::string Get(Part part, bool decoded = false) const;
  /// The URL without what is nobody else's business.
  std::string WithoutSecrets() const;
  /// The URL of something else on the server, credentials included.
  std::string WithPath(const std::string& path) const;

 private:
  struct Handle;
  explicit Url(std::unique_ptr<Handle> handle);
  std::unique_ptr<Handle> handle_;
};

}  // namespace kel
