{ The Pascal unit over a library: exit code 1, and what was wrong, for anything that is not as it should be. }
program test;

{$MODE DELPHI}

uses tarnquill;

var
  Failures: Integer = 0;
  Rows: Integer = 0;
  Image, Width, Height, Bits, Formats, I: Integer;
  HasGroup4: Boolean = False;
  Format: img_format;
  View: img_view;
  Layout: img_layout;
  Row, Inverted: array [0..4095] of Byte;

procedure Expect(const What: string; Wanted, Found: Int64);
begin
  if Wanted = Found then Exit;
  WriteLn(What, ': ', Found, ', not ', Wanted);
  Inc(Failures);
end;

function Progress(Context: TTqAddress; Value: Integer): Integer; {$IFDEF MSWINDOWS}stdcall{$ELSE}cdecl{$ENDIF};
begin
  Rows := Rows + Integer(Context);
  Result := 0;
end;

begin
  Expect('missing', IMG_CANNOT_OPEN, IMG_decompress_bitmap('missing.pcx'));
  Image := IMG_decompress_bitmap('corpus/pcx/rgb24.pcx');
  Expect('opened', 0, Image);
  IMG_bitmap_info(Image, @Width, @Height, @Bits);
  Expect('bits', 24, Bits);
  Expect('row', 0, IMGLOW_get_raster(Image, @Row, 0, 3 * Width));
  IMG_set_statusbar(1, Progress, 1);
  Expect('invert', 0, IMG_invert_bitmap(Image));
  IMG_set_statusbar(0, nil, 0);
  Expect('rows of progress', Height, Rows);
  IMGLOW_get_raster(Image, @Inverted, 0, 3 * Width);
  for I := 0 to 3 * Width - 1 do
    if Row[I] + Inverted[I] <> 255 then Expect('inverted', 255 - Row[I], Inverted[I]);
  FillChar(View, SizeOf(View), 0);
  View.bytes := SizeOf(View);
  View.width := 10;
  View.height := 10;
  View.fit := IMG_FIT_STRETCH;
  Expect('view', 0, IMG_view_layout(Image, @View, @Layout));
  Expect('layout', 10, Layout.height);
  Formats := 0;
  Format.size := SizeOf(Format);
  while IMG_get_format(Formats, @Format) = 0 do begin
    HasGroup4 := HasGroup4 or (string(PAnsiChar(@Format.name)) = 'tiff-g4');
    Inc(Formats);
  end;
  Expect('formats', 1, Ord(HasGroup4));
  Expect('depth', IMG_WRONG_DEPTH, IMG_despeckle_bitmap(Image, 3, 3, 1));
  Expect('deleted', 0, IMG_delete_bitmap(Image));
  if Failures > 0 then Halt(1);
end.
