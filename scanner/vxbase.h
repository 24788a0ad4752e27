#pragma once
// Root of the scanner library's object classes: a class name and a kind test.
// Thread-safety: immutable after construction; any thread may call.


class VxBase
{
public:
    // `cname` must outlive the object (a string literal in practice).
    explicit VxBase(const char* cname = "VxBase", const VxBase* kindParent = nullptr);
    virtual ~VxBase();

    const char* className() const { return cname; }
    // True when `name` is this object's class name or that of one of the kinds
    // it was declared to derive from.
    bool isKindOf(const char* name) const;

protected:
    const char* cname;

private:
    const char* kinds[4] = {nullptr, nullptr, nullptr, nullptr};
};
