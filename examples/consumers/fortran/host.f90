! A host in Fortran that links the library: two modes of a record that rings.
program host
  use, intrinsic :: iso_c_binding, only: c_double, c_double_complex, c_int32_t
  use, intrinsic :: iso_fortran_env, only: error_unit
  use tessel, only: prony_fit
  implicit none
  integer, parameter :: n = 60, m = 4 ! samples; exponentials, two for each mode of a real record
  real(c_double), parameter :: dt = 0.1e-9_c_double, pi = acos(-1.0_c_double)
  complex(c_double_complex) :: y(n), residue(m), pole(m)
  real(c_double) :: measures(5), t
  integer(c_int32_t) :: flag
  character(len=80) :: message
  integer :: j, k

  do k = 1, n
    t = (k - 1)*dt
    y(k) = exp(-4e7_c_double*t)*cos(2.4e9_c_double*pi*t) + 0.3_c_double*exp(-9e7_c_double*t)*cos(5.0e9_c_double*pi*t)
  end do

  call prony_fit(y, dt, residue, pole, measures, flag, message)
  if (flag /= 0) then
    write (error_unit, '(a)') trim(message)
    error stop
  end if
  do j = 1, m
    if (pole(j)%im > 0) print '("f = ", f8.6, " GHz, Q = ", f7.4, ", amplitude ", f8.6)', &
      pole(j)%im/(2e9_c_double*pi), pole(j)%im/(-2*pole(j)%re), 2*abs(residue(j))
  end do
end program
