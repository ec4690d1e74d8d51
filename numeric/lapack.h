#pragma once

namespace obrin {

// The two routines of LAPACK that the toolkit uses, whichever library the linker found (the reference one or
// OpenBLAS). Any thread; neither keeps anything between calls.

/// DGELS without transposition and with one right-hand side: least squares for a full-rank `rows` x `columns`
/// matrix `a` in column-major order with leading dimension `lda` >= max(1, rows). On return the first
/// `columns` elements of `b` are the solution and, where rows >= columns, the squares of elements columns ..
/// rows - 1 add up to the residual sum of squares; `a` is overwritten. `work` has room for `lwork` doubles.
/// The result is INFO: 0, -i for a bad argument i in LAPACK's count (where the library's own error handler
/// returns at all), or i > 0 when the matrix has not full rank.
int solveLeastSquares(int rows, int columns, double* a, int lda, double* b, int ldb, double* work, int lwork);

/// DLAMCH('S'): the least positive double whose reciprocal does not overflow, about 2.2e-308.
double safeMinimum();

} // namespace obrin
