#pragma once

namespace fuzz {

/// Variables of every kind, and procedures that take and return them.
inline constexpr const char* kDeclarations =
    "struct Point\nint X, Y\nstring Name\nint[] List\nendstruct\n"
    "int i = 7, z\nbool b = TRUE\nchar c = 'c'\nfloat f = 1.5\ndouble d = 2.5\n"
    "string s = \"text\"\nestring e = \"secret\"\nint[3] a\nstring[2] t\nPoint p\nPoint[2] q\n"
    "array g\n"
    "int Twice(int &n)\nn = n * 2\nreturn n\nendproc\n"
    "string Grow(string x)\ns = s + x\nreturn s\nendproc\n"
    "int[] Make(int n)\nint[] r\nr <<= n\nreturn r\nendproc\n"
    "Point Get(Point &x)\nx.X = x.X + 1\nreturn x\nendproc\n";

}  // namespace fuzz
