! The modes in a raw record of a field solver, for Fortran 2008 and later. Compile this source beside the program's own:
! module files differ from one compiler to the next. Link the library of modes (pkg-config tessel-modes, or
! -ltessel-modes -ltessel). What a record, a mode and a remark are, tells <tessel/modes.h>.
!
!   type(modes_found) :: found
!   call find_modes(y, t0, dt, found, status, message)
!   print *, found%modes%frequency
!
! Any number of threads may call at once. Nothing is kept in the library, and there is nothing to free.
module tessel_modes
  use, intrinsic :: iso_c_binding, only: c_char, c_double, c_double_complex, c_f_pointer, c_funloc, c_funptr, c_int, &
    c_int32_t, c_int64_t, c_loc, c_null_char, c_null_ptr, c_ptr, c_size_t, c_sizeof
  implicit none
  private
  public :: find_modes, find_modes_jointly, modes_found, modes_progress, tessel_mode, tessel_remark
  public :: modes_ok, modes_too_few_samples, modes_not_finite, modes_spacing, modes_start, modes_option, &
    modes_stopped, modes_no_memory, modes_argument, modes_failed
  public :: mode_oscillating, mode_overdamped, mode_growing

  enum, bind(C) ! how an analysis ended
    enumerator :: modes_ok = 0, modes_too_few_samples, modes_not_finite, modes_spacing, modes_start, modes_option, &
      modes_stopped, modes_no_memory, modes_argument, modes_failed
  end enum

  enum, bind(C) ! what a mode does in time
    enumerator :: mode_oscillating = 0, mode_overdamped, mode_growing
  end enum

  ! One mode: A exp(-g (t - t0)) cos(2 pi f (t - t0) + p) of a real record, A exp(i p) exp((-g + 2 pi i f) (t - t0)) of
  ! a complex one, t0 the reference time. The ending _se is for the standard error.
  type, bind(C) :: tessel_mode
    real(c_double) :: frequency    ! f, in 1 / unit of time
    real(c_double) :: decay        ! g, in 1 / unit of time
    real(c_double) :: quality      ! pi |f| / g
    real(c_double) :: amplitude    ! A
    real(c_double) :: phase        ! p, in (-pi, pi]
    real(c_double) :: frequency_se, decay_se, quality_se, amplitude_se, phase_se
    real(c_double) :: significance ! above 1 for all modes that are reported
    integer(c_int32_t) :: kind     ! mode_oscillating, mode_overdamped or mode_growing
  end type

  ! One remark: what a program tells it by (such as recordTooShort), the number it is about, a sentence.
  type :: tessel_remark
    character(len=:, kind=c_char), allocatable :: name, text
    real(c_double) :: value = 0
  end type

  ! What was found.
  type :: modes_found
    type(tessel_mode), allocatable :: modes(:)     ! by rising frequency
    type(tessel_remark), allocatable :: remarks(:)
    real(c_double) :: reference_time = 0           ! of amplitudes and phases: the time of the first sample used
    integer(c_int64_t) :: first_sample = 1         ! first sample used, from 1
    integer(c_int64_t) :: decimation = 1           ! samples averaged into one
    real(c_double) :: noise = 0                    ! standard deviation of the noise of a sample
    real(c_double) :: reduced_chi_square = 0       ! by the noise that was found before the fit
    real(c_double) :: lowest = 0, highest = 0      ! band that was searched
    logical :: long_enough = .false.               ! for the decays of the modes, of which there is at least one
    real(c_double) :: needed_until = 0             ! time that the record should reach; infinity if that cannot be told
  contains
    procedure :: has
  end type

  abstract interface
    ! Where the work stands: a word, the number of modes, the part of the record that is modelled. False stops the work.
    logical function modes_progress(stage, modes, part)
      import :: c_double, c_int64_t
      character(len=*), intent(in) :: stage
      integer(c_int64_t), intent(in) :: modes
      real(c_double), intent(in) :: part
    end function
  end interface

  ! Finds the modes of a real or complex record.
  !
  !   samples     the record, equally spaced, at least 8 samples
  !   start       time of the first sample
  !   spacing     time from one sample to the next
  !   found       what was found; without modes on failure
  !   status      modes_ok, or why there is no result
  !   message     blank on success, otherwise what is wrong, cut to its length; it counts samples from 0
  !   lowest, highest, first, noise, most_modes
  !               band, first sample that no drive reaches (from 1), standard deviation of a sample's noise, number of
  !               modes to tell of, the most significant first: found from the record where they are absent
  !   progress    called often, from the caller's thread
  interface find_modes
    module procedure find_real, find_complex
  end interface

  ! Finds the modes of several real or complex records of one structure together, such as those of a solver's probes.
  ! All records have the modes' frequencies and decays in common; amplitudes and phases are each record's own.
  !
  !   samples     one record in each column, equally spaced, at least 8 samples
  !   starts      time of the first sample of each record
  !   spacing     time from one sample to the next, of all records
  !   found       for each record its part of what was found: the same modes in the same order, with frequency, decay,
  !               quality, significance and kind in common. A remark about one record stands with that record, the
  !               others with each. Without modes on failure.
  !   status, message, lowest, highest, first, noise, most_modes, progress
  !               as of find_modes; the message counts records from 0; first counts samples from the earliest start
  !   lengths     number of samples of each record; all rows where it is absent
  interface find_modes_jointly
    module procedure find_real_jointly, find_complex_jointly
  end interface

  type, bind(C) :: c_options
    integer(c_size_t) :: size
    real(c_double) :: lowest, highest
    integer(c_int64_t) :: first
    real(c_double) :: noise
    integer(c_size_t) :: most_modes
    type(c_funptr) :: progress
    type(c_ptr) :: progress_data
  end type

  type, bind(C) :: c_summary
    integer(c_size_t) :: modes, remarks
    real(c_double) :: reference_time
    integer(c_size_t) :: first_sample, decimation
    real(c_double) :: noise, reduced_chi_square, lowest, highest
  end type

  type :: listener ! a procedure of Fortran, for a function of C to call
    procedure(modes_progress), pointer, nopass :: call => null()
  end type

  interface
    subroutine c_options_init(options, size) bind(C, name="tessel_modes_options_init")
      import :: c_options, c_size_t
      type(c_options), intent(out) :: options
      integer(c_size_t), value :: size
    end subroutine
    integer(c_int) function c_analyse(samples, count, start, spacing, options, res, message, room) &
        bind(C, name="tessel_modes_analyse")
      import :: c_char, c_double, c_int, c_options, c_ptr, c_size_t
      real(c_double), intent(in) :: samples(*)
      integer(c_size_t), value :: count, room
      real(c_double), value :: start, spacing
      type(c_options), intent(in) :: options
      type(c_ptr), intent(out) :: res
      character(kind=c_char), intent(out) :: message(*)
    end function
    integer(c_int) function c_analyse_complex(samples, count, start, spacing, options, res, message, room) &
        bind(C, name="tessel_modes_analyse_complex")
      import :: c_char, c_double, c_double_complex, c_int, c_options, c_ptr, c_size_t
      complex(c_double_complex), intent(in) :: samples(*)
      integer(c_size_t), value :: count, room
      real(c_double), value :: start, spacing
      type(c_options), intent(in) :: options
      type(c_ptr), intent(out) :: res
      character(kind=c_char), intent(out) :: message(*)
    end function
    integer(c_int) function c_analyse_jointly(samples, counts, starts, records, spacing, options, res, message, room) &
        bind(C, name="tessel_modes_analyse_jointly")
      import :: c_char, c_double, c_int, c_options, c_ptr, c_size_t
      type(c_ptr), intent(in) :: samples(*)
      integer(c_size_t), intent(in) :: counts(*)
      real(c_double), intent(in) :: starts(*)
      integer(c_size_t), value :: records, room
      real(c_double), value :: spacing
      type(c_options), intent(in) :: options
      type(c_ptr), intent(out) :: res(*)
      character(kind=c_char), intent(out) :: message(*)
    end function
    integer(c_int) function c_analyse_jointly_complex(samples, counts, starts, records, spacing, options, res, &
        message, room) bind(C, name="tessel_modes_analyse_jointly_complex")
      import :: c_char, c_double, c_int, c_options, c_ptr, c_size_t
      type(c_ptr), intent(in) :: samples(*)
      integer(c_size_t), intent(in) :: counts(*)
      real(c_double), intent(in) :: starts(*)
      integer(c_size_t), value :: records, room
      real(c_double), value :: spacing
      type(c_options), intent(in) :: options
      type(c_ptr), intent(out) :: res(*)
      character(kind=c_char), intent(out) :: message(*)
    end function
    integer(c_size_t) function c_list(res, from, modes, room, size) bind(C, name="tessel_modes_list")
      import :: c_ptr, c_size_t, tessel_mode
      type(c_ptr), value :: res
      integer(c_size_t), value :: from, room, size
      type(tessel_mode), intent(inout) :: modes(*)
    end function
    subroutine c_about(res, summary, size) bind(C, name="tessel_modes_about")
      import :: c_ptr, c_size_t, c_summary
      type(c_ptr), value :: res
      type(c_summary), intent(out) :: summary
      integer(c_size_t), value :: size
    end subroutine
    type(c_ptr) function c_remark(res, index, name, value) bind(C, name="tessel_modes_remark")
      import :: c_double, c_ptr, c_size_t
      type(c_ptr), value :: res
      integer(c_size_t), value :: index
      type(c_ptr), intent(out) :: name
      real(c_double), intent(out) :: value
    end function
    integer(c_int) function c_long_enough(res, until) bind(C, name="tessel_modes_long_enough")
      import :: c_double, c_int, c_ptr
      type(c_ptr), value :: res
      real(c_double), intent(out) :: until
    end function
    subroutine c_free(res) bind(C, name="tessel_modes_free")
      import :: c_ptr
      type(c_ptr), value :: res
    end subroutine
    integer(c_size_t) function strlen(text) bind(C)
      import :: c_ptr, c_size_t
      type(c_ptr), value :: text
    end function
  end interface

  integer, parameter :: room = 256 ! for a message of the library

contains

  recursive subroutine find_real(samples, start, spacing, found, status, message, lowest, highest, first, noise, &
                                 most_modes, progress)
    real(c_double), intent(in), contiguous :: samples(:)
    real(c_double), intent(in) :: start, spacing
    type(modes_found), intent(out) :: found
    integer(c_int), intent(out) :: status
    character(len=*), intent(out) :: message
    real(c_double), intent(in), optional :: lowest, highest, noise
    integer, intent(in), optional :: first, most_modes
    procedure(modes_progress), optional :: progress
    type(listener), target :: ear
    type(c_options) :: options
    type(c_ptr) :: res
    character(kind=c_char) :: text(room)

    if (present(progress)) ear%call => progress
    options = options_of(ear, lowest, highest, first, noise, most_modes)
    status = c_analyse(samples, size(samples, kind=c_size_t), start, spacing, options, res, text, &
                       size(text, kind=c_size_t))
    call take(res, text, found, message)
  end subroutine

  recursive subroutine find_complex(samples, start, spacing, found, status, message, lowest, highest, first, noise, &
                                    most_modes, progress)
    complex(c_double_complex), intent(in), contiguous :: samples(:)
    real(c_double), intent(in) :: start, spacing
    type(modes_found), intent(out) :: found
    integer(c_int), intent(out) :: status
    character(len=*), intent(out) :: message
    real(c_double), intent(in), optional :: lowest, highest, noise
    integer, intent(in), optional :: first, most_modes
    procedure(modes_progress), optional :: progress
    type(listener), target :: ear
    type(c_options) :: options
    type(c_ptr) :: res
    character(kind=c_char) :: text(room)

    if (present(progress)) ear%call => progress
    options = options_of(ear, lowest, highest, first, noise, most_modes)
    status = c_analyse_complex(samples, size(samples, kind=c_size_t), start, spacing, options, res, text, &
                               size(text, kind=c_size_t))
    call take(res, text, found, message)
  end subroutine

  recursive subroutine find_real_jointly(samples, starts, spacing, found, status, message, lengths, lowest, highest, &
                                         first, noise, most_modes, progress)
    real(c_double), intent(in), contiguous, target :: samples(:, :)
    real(c_double), intent(in), contiguous :: starts(:)
    real(c_double), intent(in) :: spacing
    type(modes_found), allocatable, intent(out) :: found(:)
    integer(c_int), intent(out) :: status
    character(len=*), intent(out) :: message
    integer, intent(in), optional :: lengths(:)
    real(c_double), intent(in), optional :: lowest, highest, noise
    integer, intent(in), optional :: first, most_modes
    procedure(modes_progress), optional :: progress
    type(listener), target :: ear
    type(c_options) :: options
    type(c_ptr), allocatable :: columns(:), res(:)
    integer(c_size_t), allocatable :: counts(:)
    character(kind=c_char) :: text(room)
    integer :: p

    if (present(progress)) ear%call => progress
    options = options_of(ear, lowest, highest, first, noise, most_modes)
    allocate (columns(size(samples, 2)), res(size(samples, 2)), found(size(samples, 2)))
    call fits(shape(samples), size(starts), lengths, counts, status, message)
    if (status /= modes_ok) return
    columns = c_null_ptr
    do p = 1, size(columns)
      if (size(samples, 1) > 0) columns(p) = c_loc(samples(1, p))
    end do
    status = c_analyse_jointly(columns, counts, starts, size(columns, kind=c_size_t), spacing, options, &
                               res, text, size(text, kind=c_size_t))
    do p = 1, size(columns)
      call take(res(p), text, found(p), message)
    end do
    if (size(columns) == 0) message = 'there is no record'
  end subroutine

  recursive subroutine find_complex_jointly(samples, starts, spacing, found, status, message, lengths, lowest, &
                                            highest, first, noise, most_modes, progress)
    complex(c_double_complex), intent(in), contiguous, target :: samples(:, :)
    real(c_double), intent(in), contiguous :: starts(:)
    real(c_double), intent(in) :: spacing
    type(modes_found), allocatable, intent(out) :: found(:)
    integer(c_int), intent(out) :: status
    character(len=*), intent(out) :: message
    integer, intent(in), optional :: lengths(:)
    real(c_double), intent(in), optional :: lowest, highest, noise
    integer, intent(in), optional :: first, most_modes
    procedure(modes_progress), optional :: progress
    type(listener), target :: ear
    type(c_options) :: options
    type(c_ptr), allocatable :: columns(:), res(:)
    integer(c_size_t), allocatable :: counts(:)
    character(kind=c_char) :: text(room)
    integer :: p

    if (present(progress)) ear%call => progress
    options = options_of(ear, lowest, highest, first, noise, most_modes)
    allocate (columns(size(samples, 2)), res(size(samples, 2)), found(size(samples, 2)))
    call fits(shape(samples), size(starts), lengths, counts, status, message)
    if (status /= modes_ok) return
    columns = c_null_ptr
    do p = 1, size(columns)
      if (size(samples, 1) > 0) columns(p) = c_loc(samples(1, p))
    end do
    status = c_analyse_jointly_complex(columns, counts, starts, size(columns, kind=c_size_t), spacing, options, &
                               res, text, size(text, kind=c_size_t))
    do p = 1, size(columns)
      call take(res(p), text, found(p), message)
    end do
    if (size(columns) == 0) message = 'there is no record'
  end subroutine

  ! The number of samples of each column, where starts and lengths fit the columns.
  subroutine fits(extents, starts, lengths, counts, status, message)
    integer, intent(in) :: extents(2), starts
    integer, intent(in), optional :: lengths(:)
    integer(c_size_t), allocatable, intent(out) :: counts(:)
    integer(c_int), intent(out) :: status
    character(len=*), intent(out) :: message

    status = modes_argument
    message = ''
    allocate (counts(extents(2)), source=int(extents(1), c_size_t))
    if (starts /= extents(2)) then
      message = 'there is not one start for each record'
    else if (present(lengths)) then
      if (size(lengths) /= extents(2)) then
        message = 'there is not one length for each record'
      else if (any(lengths < 0 .or. lengths > extents(1))) then
        message = 'a length is out of the rows'
      else
        counts = int(lengths, c_size_t)
        status = modes_ok
      end if
    else
      status = modes_ok
    end if
  end subroutine

  ! Whether a remark of this name was made.
  pure logical function has(self, name)
    class(modes_found), intent(in) :: self
    character(len=*), intent(in) :: name
    integer :: j

    has = .false.
    if (.not. allocated(self%remarks)) return
    do j = 1, size(self%remarks)
      has = has .or. self%remarks(j)%name == name
    end do
  end function

  type(c_options) function options_of(ear, lowest, highest, first, noise, most_modes) result(options)
    type(listener), intent(in), target :: ear
    real(c_double), intent(in), optional :: lowest, highest, noise
    integer, intent(in), optional :: first, most_modes

    call c_options_init(options, c_sizeof(options))
    if (present(lowest)) options%lowest = lowest
    if (present(highest)) options%highest = highest
    ! the library takes -1 for "find out": a first sample that is out of range stays so
    if (present(first)) options%first = merge(int(first, c_int64_t) - 1, -2_c_int64_t, first > 0)
    ! and 0 for "find out" here
    if (present(noise)) options%noise = merge(noise, -1.0_c_double, abs(noise) > 0)
    if (present(most_modes)) options%most_modes = int(max(most_modes, 0), c_size_t)
    if (associated(ear%call)) then
      options%progress = c_funloc(forward)
      options%progress_data = c_loc(ear)
    end if
  end function

  ! What the library calls: hands its words to the procedure of Fortran.
  integer(c_int) function forward(stage, modes, part, data) bind(C)
    type(c_ptr), value :: stage, data
    integer(c_size_t), value :: modes
    real(c_double), value :: part
    type(listener), pointer :: ear

    call c_f_pointer(data, ear)
    forward = merge(0_c_int, 1_c_int, ear%call(string(stage), int(modes, c_int64_t), part))
  end function

  ! Moves what the library holds into arrays of Fortran, and frees it.
  subroutine take(res, text, found, message)
    type(c_ptr), intent(in) :: res
    character(kind=c_char), intent(in) :: text(:)
    type(modes_found), intent(inout) :: found
    character(len=*), intent(out) :: message
    type(c_summary) :: summary
    type(tessel_mode) :: one
    type(c_ptr) :: name, sentence
    integer(c_size_t) :: j

    message = ''
    do j = 1, min(size(text, kind=c_size_t), len(message, kind=c_size_t))
      if (text(j) == c_null_char) exit
      message(j:j) = text(j)
    end do

    call c_about(res, summary, c_sizeof(summary))
    allocate (found%modes(summary%modes), found%remarks(summary%remarks))
    j = c_list(res, 0_c_size_t, found%modes, summary%modes, c_sizeof(one))
    do j = 1, summary%remarks
      sentence = c_remark(res, j - 1, name, found%remarks(j)%value)
      found%remarks(j)%name = string(name)
      found%remarks(j)%text = string(sentence)
    end do
    found%reference_time = summary%reference_time
    found%first_sample = int(summary%first_sample, c_int64_t) + 1
    found%decimation = int(summary%decimation, c_int64_t)
    found%noise = summary%noise
    found%reduced_chi_square = summary%reduced_chi_square
    found%lowest = summary%lowest
    found%highest = summary%highest
    found%long_enough = c_long_enough(res, found%needed_until) /= 0
    call c_free(res)
  end subroutine

  ! A zero-terminated string of C.
  function string(text) result(copy)
    type(c_ptr), intent(in) :: text
    character(len=:, kind=c_char), allocatable :: copy
    character(kind=c_char), pointer :: letters(:)
    integer(c_size_t) :: j

    call c_f_pointer(text, letters, [strlen(text)])
    allocate (character(len=size(letters), kind=c_char) :: copy)
    do j = 1, size(letters, kind=c_size_t)
      copy(j:j) = letters(j)
    end do
  end function
end module
