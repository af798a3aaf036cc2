#include "writer/checksum_algorithm.h"

#include <xxhash.h>

#include <algorithm>
#include <array>
#include <new>

#include "writer/byte_scan.h"

namespace tamrix {

namespace {

class Modsum64 : public ChecksumAlgorithm {
 public:
  void reset() override { sum_ = 0; }
  void add(const char* data, std::size_t size) override { sum_ += byteSum(data, size); }
  void addZeros(std::size_t /*size*/) override {}
  std::string text() const override { return std::to_string(sum_); }

 private:
  std::uint64_t sum_ = 0;
};

class Xxh128 : public ChecksumAlgorithm {
 public:
  Xxh128() : state_(XXH3_createState()) {
    if (state_ == nullptr) throw std::bad_alloc();
    Xxh128::reset();
  }
  ~Xxh128() override { XXH3_freeState(state_); }
  Xxh128(const Xxh128&) = delete;
  Xxh128& operator=(const Xxh128&) = delete;

  void reset() override { XXH3_128bits_reset(state_); }
  void add(const char* data, std::size_t size) override { XXH3_128bits_update(state_, data, size); }
  void addZeros(std::size_t size) override {
    static constexpr std::array<char, 65536> kZeros{};
    for (std::size_t left = size; left > 0;) {
      const std::size_t piece = std::min(left, kZeros.size());
      add(kZeros.data(), piece);
      left -= piece;
    }
  }
  std::string text() const override {
    XXH128_canonical_t canonical;
    XXH128_canonicalFromHash(&canonical, XXH3_128bits_digest(state_));
    std::string digits;
    for (const unsigned char byte : canonical.digest) {
      digits += "0123456789abcdef"[byte >> 4U];
      digits += "0123456789abcdef"[byte & 0xFU];
    }
    return digits;
  }

 private:
  XXH3_state_t* const state_;
};

template <class Algorithm>
std::unique_ptr<ChecksumAlgorithm> make() {
  return std::make_unique<Algorithm>();
}

struct Row {
  std::string_view name;
  std::unique_ptr<ChecksumAlgorithm> (*make)();
};
constexpr std::array kAlgorithms = {Row{"modsum64", make<Modsum64>}, Row{"xxh128", make<Xxh128>}};

}  // namespace

std::unique_ptr<ChecksumAlgorithm> makeChecksumAlgorithm(std::string_view name) {
  const auto* const row = std::find_if(kAlgorithms.begin(), kAlgorithms.end(),
                                       [&](const Row& candidate) { return candidate.name == name; });
  return row == kAlgorithms.end() ? nullptr : row->make();
}

std::string checksumAttribute(std::string_view name) { return "user._ltfs." + std::string(name); }

}  // namespace tamrix
