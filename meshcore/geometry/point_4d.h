#pragma once
// The neutral carrier that moves a point of any kind across the virtual
// conversion interface (To4DPoint / operator=).

#include <algorithm>

namespace meshcore {

struct C4DPoint {
  static constexpr int kCapacity = 4;

  int n; // components in use
  float v[kCapacity];

  // Only the count is set: carriers are filled right after construction.
  C4DPoint() : n(0) {}
  C4DPoint(int count, int clear) : n(count) {
    if (clear && count >= 1)
      Clear(count);
  }
  C4DPoint(const C4DPoint& p) : n(p.n) { Copy(p); }
  C4DPoint& operator=(const C4DPoint& p) {
    n = p.n;
    Copy(p);
    return *this;
  }

  void Init(int count) {
    n = count;
    if (count > 0)
      Clear(count);
  }

  float& operator[](int i) { return v[i]; }
  const float& operator[](int i) const { return v[i]; }

  C4DPoint& operator+=(const C4DPoint& p) {
    for (int i = 0; i < Used(n); ++i)
      v[i] += p.v[i];
    return *this;
  }
  C4DPoint& operator-=(const C4DPoint& p) {
    for (int i = 0; i < Used(n); ++i)
      v[i] -= p.v[i];
    return *this;
  }
  C4DPoint& operator*=(const C4DPoint& p) {
    for (int i = 0; i < Used(n); ++i)
      v[i] *= p.v[i];
    return *this;
  }
  C4DPoint& operator/=(const C4DPoint& p) {
    for (int i = 0; i < Used(n); ++i)
      v[i] /= p.v[i];
    return *this;
  }
  C4DPoint& operator/=(float s) {
    for (int i = 0; i < Used(n); ++i)
      v[i] /= s;
    return *this;
  }

  // The result takes the right operand's count while the loop runs over the
  // left operand's: callers always combine tuples of one kind, and existing
  // results depend on exactly this.
  C4DPoint operator+(const C4DPoint& p) const {
    C4DPoint r(p.n, 0);
    for (int i = 0; i < Used(n); ++i)
      r.v[i] = v[i] + p.v[i];
    return r;
  }
  C4DPoint operator-(const C4DPoint& p) const {
    C4DPoint r(p.n, 0);
    for (int i = 0; i < Used(n); ++i)
      r.v[i] = v[i] - p.v[i];
    return r;
  }
  C4DPoint operator*(const C4DPoint& p) const {
    C4DPoint r(p.n, 0);
    for (int i = 0; i < Used(n); ++i)
      r.v[i] = v[i] * p.v[i];
    return r;
  }
  C4DPoint operator/(const C4DPoint& p) const {
    C4DPoint r(p.n, 0);
    for (int i = 0; i < Used(n); ++i)
      r.v[i] = v[i] / p.v[i];
    return r;
  }
  C4DPoint operator/(float s) const {
    C4DPoint r(n, 0);
    for (int i = 0; i < Used(n); ++i)
      r.v[i] = v[i] / s;
    return r;
  }

private:
  // A count beyond the storage never walks off the array.
  static int Used(int count) { return std::clamp(count, 0, kCapacity); }
  void Clear(int count) { std::fill_n(v, Used(count), 0.0f); }
  void Copy(const C4DPoint& p) { std::copy_n(p.v, Used(p.n), v); }
};

} // namespace meshcore
