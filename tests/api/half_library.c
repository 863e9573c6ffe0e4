void LEASTSQ_PRONY_SVD(void);
void LEASTSQ_PRONY_SVD(void) {}
