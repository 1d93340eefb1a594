#pragma once
// Plain float vectors: two and three IEEE singles, no padding (8 and 12 bytes).
#include <cmath>

class CbVector2f {
public:
    float x = 0.f, y = 0.f;
    constexpr CbVector2f() = default;
    constexpr CbVector2f(float ax, float ay) : x(ax), y(ay) {}
    constexpr float& operator[](int i) { return i == 0 ? x : y; }
    constexpr float operator[](int i) const { return i == 0 ? x : y; }
    friend constexpr bool operator==(const CbVector2f&, const CbVector2f&) = default;
    constexpr CbVector2f operator+(const CbVector2f& o) const { return {x + o.x, y + o.y}; }
    constexpr CbVector2f operator-(const CbVector2f& o) const { return {x - o.x, y - o.y}; }
    constexpr CbVector2f operator*(float s) const { return {x * s, y * s}; }
};

class CbVector3f {
public:
    float x = 0.f, y = 0.f, z = 0.f;
    constexpr CbVector3f() = default;
    constexpr CbVector3f(float ax, float ay, float az) : x(ax), y(ay), z(az) {}
    constexpr float& operator[](int i) { return i == 0 ? x : (i == 1 ? y : z); }
    constexpr float operator[](int i) const { return i == 0 ? x : (i == 1 ? y : z); }
    friend constexpr bool operator==(const CbVector3f&, const CbVector3f&) = default;
    constexpr CbVector3f operator+(const CbVector3f& o) const { return {x + o.x, y + o.y, z + o.z}; }
    constexpr CbVector3f operator-(const CbVector3f& o) const { return {x - o.x, y - o.y, z - o.z}; }
    constexpr CbVector3f operator*(float s) const { return {x * s, y * s, z * s}; }
    constexpr CbVector3f& operator+=(const CbVector3f& o) { x += o.x; y += o.y; z += o.z; return *this; }
    constexpr float Dot(const CbVector3f& o) const { return x * o.x + y * o.y + z * o.z; }
    constexpr CbVector3f Cross(const CbVector3f& o) const {
        return {y * o.z - z * o.y, z * o.x - x * o.z, x * o.y - y * o.x};
    }
    float Length() const { return std::sqrt(Dot(*this)); }
};

static_assert(sizeof(CbVector2f) == 8 && sizeof(CbVector3f) == 12, "vectors travel as packed floats");
