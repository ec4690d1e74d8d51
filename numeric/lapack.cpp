#include "numeric/lapack.h"

#include <cstddef>

// Fortran passes everything by reference, and the length of each character argument behind the last one.
extern "C" {
void dgels_(const char* trans, const int* m, const int* n, const int* nrhs, double* a, const int* lda,
            double* b, const int* ldb, double* work, const int* lwork, int* info, std::size_t transLength);
double dlamch_(const char* what, std::size_t whatLength);
}

namespace obrin {

int solveLeastSquares(int rows, int columns, double* a, int lda, double* b, int ldb, double* work,
                      int lwork) {
    const int rightHandSides = 1;
    int info = 0;
    dgels_("N", &rows, &columns, &rightHandSides, a, &lda, b, &ldb, work, &lwork, &info, 1);
    return info;
}

double safeMinimum() {
    return dlamch_("S", 1);
}

} // namespace obrin
