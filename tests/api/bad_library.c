void LEASTSQ_PRONY_SVD(void);
void LEASTSQ_PRONY_SVD(void) {}

#ifdef TESSEL_FACTORY
void* TESSEL_FACTORY(void);
void* TESSEL_FACTORY(void)
{
    return 0;
}
#endif
