#pragma once

// Points, sizes and rectangles in screen points. Which corner is the origin
// depends on the space: accessibility frames and event locations have it at
// the top left of the first screen, panel frames at the bottom left.

namespace jorvane {

struct Point {
    double x = 0;
    double y = 0;
    friend bool operator==(const Point&, const Point&) = default;
};

struct Size {
    double width = 0;
    double height = 0;
    friend bool operator==(const Size&, const Size&) = default;
};

struct Rect {
    Point origin;
    Size size;

    double minX() const { return size.width < 0 ? origin.x + size.width : origin.x; }
    double maxX() const { return size.width < 0 ? origin.x : origin.x + size.width; }
    double minY() const { return size.height < 0 ? origin.y + size.height : origin.y; }
    double maxY() const { return size.height < 0 ? origin.y : origin.y + size.height; }
    bool isEmpty() const { return size.width == 0 || size.height == 0; }

    // Half-open on the far edges, so that two adjacent rectangles never both
    // contain a point on their shared edge.
    bool containsPoint(Point p) const {
        return !isEmpty() && p.x >= minX() && p.x < maxX() && p.y >= minY() && p.y < maxY();
    }
    friend bool operator==(const Rect&, const Rect&) = default;
};

}  // namespace jorvane
