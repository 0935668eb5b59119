Sub Main()
  ' five lines
  Dim page As Long: page = IMG_decompress_bitmap("scan.bmp")
  IMG_remove_border page, -1
  IMG_deskew_bitmap page, 0, -1, -1, 0
  IMG_adaptive_mono page, 2, 0, 0
  IMG_save_bitmap page, "letter.tif", IMG_TYPE_TIFF_G4
  ' until here
End Sub
