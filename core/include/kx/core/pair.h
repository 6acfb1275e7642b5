#pragma once
// kxPair<T>: a plain (x, y) value. Read with x()/y(), write with x(v)/y(v).


template <typename T>
class kxPair {
public:
    // Value-initialised (zero for numbers), or (x, y).
    kxPair() : x_(), y_() {}
    kxPair(T x, T y) : x_(x), y_(y) {}

    // The coordinates: x() and y() read them, x(v) and y(v) write them.
    T x() const { return x_; }
    T y() const { return y_; }
    void x(T value) { x_ = value; }
    void y(T value) { y_ = value; }

    // Equal when both coordinates are.
    bool operator==(const kxPair& other) const { return x_ == other.x_ && y_ == other.y_; }
    bool operator!=(const kxPair& other) const { return !(*this == other); }

private:
    T x_;
    T y_;
};
