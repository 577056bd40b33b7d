// Hands a downloaded document to the browser as a file to save.

export function SaveFile(blob, fileName) {
  const url = URL.createObjectURL(blob);
  const link = document.createElement('a');
  link.href = url;
  link.download = fileName;
  link.hidden = true;
  document.body.append(link);
  link.click();
  link.remove();
  // The browser has taken its own reference by the time the click returns;
  // the delay only spares slow browsers a revoked URL.
  setTimeout(() => URL.revokeObjectURL(url), 60000);
}
