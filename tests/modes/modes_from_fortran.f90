! The library of modes through its module, for a test in C++ to call.
module modes_from_fortran
  use, intrinsic :: iso_c_binding
  use tessel_modes
  implicit none
  integer, private :: calls, last ! of the progress function

contains

  ! Finds the modes of a complex record, or a real one, and stops at the given call of the progress function (0: never).
  ! Returns the status, the modes, what stands beside them, and how many letters the remarks and the message have.
  integer(c_int) function fortran_find(re, im, n, first, stop_at, modes, room, beside, letters) bind(C)
    integer(c_int), value :: n, first, stop_at, room
    real(c_double), intent(in) :: re(n), im(n)
    type(tessel_mode), intent(inout) :: modes(room)
    real(c_double), intent(out) :: beside(9)
    integer(c_int), intent(out) :: letters(2)
    type(modes_found) :: found
    character(len=100) :: message
    integer :: j

    calls = 0
    last = stop_at
    if (any(abs(im) > 0)) then
      call find_modes(cmplx(re, im, c_double), 2.0_c_double, 0.5_c_double, found, fortran_find, message)
    else if (first > 0) then
      call find_modes(re, 2.0_c_double, 0.5_c_double, found, fortran_find, message, first=first, &
                      lowest=0.01_c_double, highest=0.1_c_double, noise=1e-5_c_double, most_modes=20)
    else if (stop_at > 0) then
      call find_modes(re, 2.0_c_double, 0.5_c_double, found, fortran_find, message, progress=listen)
      if (calls /= stop_at) fortran_find = -1
    else
      call find_modes(re, 2.0_c_double, 0.5_c_double, found, fortran_find, message)
    end if
    modes(:min(room, size(found%modes))) = found%modes(:min(room, size(found%modes)))
    beside = [real(size(found%modes), c_double), found%reference_time, real(found%first_sample, c_double), &
              real(found%decimation, c_double), found%noise, found%reduced_chi_square, found%lowest, found%highest, &
              merge(1.0_c_double, 0.0_c_double, found%long_enough)]
    letters = [0, len_trim(message)]
    do j = 1, size(found%remarks)
      letters(1) = letters(1) + len(found%remarks(j)%text)
      if (.not. found%has(found%remarks(j)%name)) fortran_find = -2
    end do
  end function

  ! The same of the columns of an array, of which the last is shorter.
  integer(c_int) function fortran_find_jointly(re, im, n, records, shorter, modes, room, beside, letters) bind(C)
    integer(c_int), value :: n, records, shorter, room
    real(c_double), intent(in) :: re(n, records), im(n, records)
    type(tessel_mode), intent(inout) :: modes(room, records)
    real(c_double), intent(out) :: beside(3, records)
    integer(c_int), intent(out) :: letters
    type(modes_found), allocatable :: found(:)
    integer :: lengths(records), p
    real(c_double) :: starts(records)
    character(len=100) :: message

    lengths = n
    lengths(records) = shorter
    starts = [(2.0_c_double * p, p=1, records)]
    if (any(abs(im) > 0)) then
      call find_modes_jointly(cmplx(re, im, c_double), starts, 0.5_c_double, found, fortran_find_jointly, message, &
                              lengths=lengths)
    else
      call find_modes_jointly(re, starts, 0.5_c_double, found, fortran_find_jointly, message, lengths=lengths)
    end if
    do p = 1, records
      modes(:min(room, size(found(p)%modes)), p) = found(p)%modes(:min(room, size(found(p)%modes)))
      beside(:, p) = [real(size(found(p)%modes), c_double), found(p)%reference_time, found(p)%noise]
    end do
    letters = len_trim(message)
  end function

  logical function listen(stage, held, part)
    character(len=*), intent(in) :: stage
    integer(c_int64_t), intent(in) :: held
    real(c_double), intent(in) :: part

    calls = calls + 1
    listen = calls < last .and. len(stage) > 0 .and. held >= 0 .and. part >= 0
  end function
end module
