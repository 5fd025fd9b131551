// The multi-width line finder's working list: the lines found so far in a
// frame, strongest first, merged as candidates arrive.
#ifndef KAVRI_CAMERA_CAMERALINELIST_H
#define KAVRI_CAMERA_CAMERALINELIST_H

#include <stdint.h>

#include <algorithm>
#include <cstdlib>

constexpr int kCameraLineSlots = 5;

struct CameraLine {
  int32_t position, width, strength;  // samples, samples, 1/256
};

// The lines found so far, strongest first; equal strengths keep the earlier
// line in front.
class CameraLineList {
 public:
  // At most limit lines are kept; the limit itself is kept to the slots.
  explicit CameraLineList(int limit) : limit_(std::clamp(limit, 0, kCameraLineSlots)) {}

  int Size() const { return size_; }
  CameraLine& operator[](int i) { return lines_[i]; }

  void Merge(const CameraLine& candidate) {
    const int32_t c = candidate.position, w = candidate.width;
    for (int i = 0; i < size_; ++i) {
      const CameraLine& line = lines_[i];
      // A much wider candidate around a found line is not a new line.
      if (w > 2 * line.width && c - w / 2 < line.position - line.width / 2 &&
          c + w / 2 > line.position + line.width / 2)
        return;
      if (std::abs(line.position - c) > (w + line.width) / 2) continue;
      if (candidate.strength <= line.strength) return;
      lines_[i] = candidate;
      MoveForward(i);
      return;
    }
    if (size_ < limit_) {
      lines_[size_++] = candidate;
    } else if (size_ > 0 && candidate.strength > lines_[size_ - 1].strength) {
      lines_[size_ - 1] = candidate;
    } else {
      return;
    }
    MoveForward(size_ - 1);
  }

  void Remove(int i) {
    std::copy(lines_ + i + 1, lines_ + size_, lines_ + i);
    --size_;
  }

  void SortByPosition() {
    std::stable_sort(lines_, lines_ + size_,
                     [](const CameraLine& a, const CameraLine& b) { return a.position < b.position; });
  }

 private:
  void MoveForward(int i) {
    for (; i > 0 && lines_[i - 1].strength < lines_[i].strength; --i) std::swap(lines_[i - 1], lines_[i]);
  }

  CameraLine lines_[kCameraLineSlots];
  int size_ = 0;
  int limit_;
};

#endif
