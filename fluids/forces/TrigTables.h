#pragma once
// Sine, cosine and arc cosine from tables of 4097 entries, filled once.

namespace orlix {

// Of any x; 0 where x is no number. Off by at most half an entry: 8e-4.
double TableSin(double x);
double TableCos(double x);
// pi at x of -1 or below, 0 at 1 or above.
double TableAcos(double x);

}  // namespace orlix
