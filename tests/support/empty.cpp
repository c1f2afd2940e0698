// Copyright Marvolith contributors.
// Keeps the support library non-empty while it holds only headers.
