// Headers as ranges: what the protocol layer sees of a request, and what a response head is made from.
#pragma once

#include <boost/container/small_vector.hpp>
#include <boost/utility/string_view.hpp>
#include <cstddef>
#include <utility>

namespace Lumo {

/// A sequence with a cursor of its own.
template <typename T>
class Range {
 public:
  virtual ~Range() = default;
  /// Only when not at the end.
  virtual T current() const = 0;
  virtual void advance() = 0;
  virtual bool atEnd() const = 0;
  virtual void reset() = 0;

 protected:
  Range() = default;
  Range(Range const&) = default;
  Range& operator=(Range const&) = default;
};

/// A range that can be walked any number of times.
template <typename T>
class ForwardRange : public Range<T> {};

namespace Transport {

/// One header. Views, valid as long as what they were made from.
class Header {
 public:
  virtual ~Header() = default;
  virtual boost::string_view name() const = 0;
  virtual boost::string_view value() const = 0;

 protected:
  Header() = default;
  Header(Header const&) = default;
  Header& operator=(Header const&) = default;
};

namespace Http {

using HeaderRange = ForwardRange<Header const&>;

/// A name and a value without ownership.
class HeaderView final : public Header {
 public:
  HeaderView() = default;
  HeaderView(boost::string_view name, boost::string_view value) : name_(name), value_(value) {}
  boost::string_view name() const override { return name_; }
  boost::string_view value() const override { return value_; }

 private:
  boost::string_view name_;
  boost::string_view value_;
};

/// The headers of a response. Names that begin with a colon carry status and reason to the head writer and
/// never reach the wire.
template <typename Headers>
class HttpResponseHeaderRangeBase final : public HeaderRange {
 public:
  explicit HttpResponseHeaderRangeBase(Headers headers) : headers_(std::move(headers)) {}

  Header const& current() const override { return headers_[cursor_]; }
  void advance() override { ++cursor_; }
  bool atEnd() const override { return cursor_ == headers_.size(); }
  void reset() override { cursor_ = 0; }

 private:
  Headers headers_;
  std::size_t cursor_ = 0;
};

/// Room for the usual ones without memory of its own.
using HeaderViews = boost::container::small_vector<HeaderView, 5>;
using ResponseHeaders = HttpResponseHeaderRangeBase<HeaderViews>;

}  // namespace Http
}  // namespace Transport
}  // namespace Lumo
