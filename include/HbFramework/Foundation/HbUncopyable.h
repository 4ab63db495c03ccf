// Empty base that forbids copying and assignment of the classes deriving from it.
#ifndef HB_FOUNDATION_HBUNCOPYABLE_H
#define HB_FOUNDATION_HBUNCOPYABLE_H

class HbUncopyable {
protected:
    HbUncopyable() {}
    ~HbUncopyable() {}

public:
    HbUncopyable(const HbUncopyable&) = delete;
    HbUncopyable& operator=(const HbUncopyable&) = delete;
};

#endif  // HB_FOUNDATION_HBUNCOPYABLE_H
