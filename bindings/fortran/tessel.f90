! The least-squares Prony fit for Fortran 2003 and later. Compile this source beside the program's own: module files
! differ from one compiler to the next. Link the library (-ltessel).
module tessel
  use, intrinsic :: iso_c_binding, only: c_char, c_double, c_double_complex, c_int32_t
  implicit none
  private
  public :: leastsq_prony_svd, prony_fit

  interface
    ! The library's own entry, argument by argument; its manual page and its C header describe them. The length of
    ! ErrorMessage comes last, by value.
    subroutine leastsq_prony_svd(n, ndim, y, dt, m, mmax, residue, pole, err_l2, err_rms, err_peak, err_rms_mean, &
                                 err_peak_mean, error_flag, error_message, error_message_length) &
        bind(C, name="LEASTSQ_PRONY_SVD")
      import :: c_char, c_double, c_double_complex, c_int32_t
      integer(c_int32_t), intent(in) :: n, ndim, m, mmax
      complex(c_double_complex), intent(in) :: y(ndim)
      real(c_double), intent(in) :: dt
      complex(c_double_complex), intent(inout) :: residue(mmax), pole(mmax)
      real(c_double), intent(inout) :: err_l2, err_rms, err_peak, err_rms_mean, err_peak_mean
      integer(c_int32_t), intent(out) :: error_flag
      character(kind=c_char), intent(out) :: error_message(*)
      integer(c_int32_t), value :: error_message_length
    end subroutine
  end interface

contains

  ! The same fit of the samples y(k), k = 1..size(y), spaced by dt, with size(pole) exponentials:
  !
  !   y(k) ~ sum_j residue(j) exp(pole(j) (k - 1) dt)
  !
  ! residue must be as long as pole. measures holds ERR_L2, ERR_RMS, ERR_PEAK, ERR_RMS_MEAN and ERR_PEAK_MEAN.
  ! error_flag is 0 on success; otherwise -1, and message says why. After a failure the results may be unset.
  subroutine prony_fit(y, dt, residue, pole, measures, error_flag, message)
    complex(c_double_complex), intent(in), contiguous :: y(:)
    real(c_double), intent(in) :: dt
    complex(c_double_complex), intent(inout), contiguous :: residue(:), pole(:)
    real(c_double), intent(inout) :: measures(5)
    integer(c_int32_t), intent(out) :: error_flag
    character(len=*, kind=c_char), intent(out) :: message
    integer(c_int32_t) :: n, m

    n = size(y, kind=c_int32_t)
    m = min(size(pole, kind=c_int32_t), size(residue, kind=c_int32_t))
    call leastsq_prony_svd(n, n, y, dt, m, m, residue, pole, measures(1), measures(2), measures(3), measures(4), &
                           measures(5), error_flag, message, len(message, kind=c_int32_t))
  end subroutine
end module
