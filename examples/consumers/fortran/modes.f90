! A host in Fortran that asks, while it runs, whether its record is long enough yet, and for the modes then.
program modes
  use, intrinsic :: iso_c_binding, only: c_double, c_int, c_int64_t
  use, intrinsic :: iso_fortran_env, only: error_unit
  use tessel_modes, only: find_modes, modes_found, modes_ok
  implicit none
  integer, parameter :: most = 5000, block_length = 250 ! time steps at most, and between two questions
  real(c_double), parameter :: dt = 0.1e-9_c_double
  real(c_double) :: y(most)
  integer(c_int64_t) :: state = 1
  type(modes_found) :: found
  integer(c_int) :: status
  character(len=128) :: message
  integer :: j, k

  do k = 1, most
    y(k) = step(k)
    if (mod(k, block_length) /= 0) cycle
    call find_modes(y(:k), 0.0_c_double, dt, found, status, message)
    if (status /= modes_ok) then
      write (error_unit, '(a)') trim(message)
      error stop
    end if
    if (found%long_enough) exit
  end do

  do j = 1, size(found%modes)
    associate (mode => found%modes(j))
      print '("f = ", f5.3, " GHz, Q = ", i0, ", amplitude ", f4.2, a)', mode%frequency/1e9_c_double, &
        nint(mode%quality), mode%amplitude, trim(merge(', Q known to better than 1', repeat(' ', 26), &
        mode%quality_se < 1))
    end associate
  end do

contains

  ! One time step of a solver: a field that rings at 1.2 GHz and at 2.5 GHz, and a little noise.
  real(c_double) function step(k)
    integer, intent(in) :: k
    real(c_double), parameter :: pi = acos(-1.0_c_double)
    real(c_double) :: t

    t = (k - 1)*dt
    state = mod(state*1664525_c_int64_t + 1013904223_c_int64_t, 4294967296_c_int64_t)
    step = exp(-4e7_c_double*t)*cos(2.4e9_c_double*pi*t) + 0.3_c_double*exp(-9e7_c_double*t)*cos(5e9_c_double*pi*t) + &
           1e-3_c_double*(state/4294967296.0_c_double - 0.5_c_double)
  end function
end program
